/* Locks a file as any other program may, with a POSIX record lock for writing, says "locked", and
 * holds the lock until its standard input ends.
 *
 *     hold_lock FILE
 */
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: hold_lock FILE\n");
        return 2;
    }
    int const fd = open(argv[1], O_RDWR | O_CLOEXEC);
    struct flock lock = {0};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fd < 0 || fcntl(fd, F_SETLK, &lock) != 0) {
        perror(argv[1]);
        return 1;
    }
    puts("locked");
    fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0)
        continue;
    close(fd);
    return 0;
}
