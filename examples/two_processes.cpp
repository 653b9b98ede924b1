// Two processes count in one file at the same time, and no count is lost.
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>

#include "Z/ZStanzaFileProperties.h"

namespace {

void countJobs() {
    ZStanzaFileProperties jobs(1);
    for (int i = 0; i < 20; ++i)
        // [update]
        jobs.updateFile(
            [](ZStanzaFileProperties& file) {  // runs with the file locked, and read if it changed
                file.setIntegerValue("jobs", "done", file.getIntegerValue("jobs", "done") + 1);
            },
            5000, "app.conf");  // waits for the lock up to 5,000 milliseconds
    // [/update]
}

}  // namespace

int main() {
    pid_t const other = fork();
    if (other < 0) return 1;
    countJobs();
    if (other == 0) _exit(0);

    int status = 0;
    if (waitpid(other, &status, 0) != other || status != 0) return 1;
    ZStanzaFileProperties const settings("app.conf", 1);
    std::cout << "jobs done: " << settings.getIntegerValue("jobs", "done") << "\n";
}
