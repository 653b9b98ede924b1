/* How a stanza file is stored and recovered, small enough to be checked completely:
 *
 *     scripts/model.sh
 *
 * Three files: M, the main file; C, its companion; R, the recovery copy, `.NAME.zsave`. The steps
 * bear the names that they have in the code. Whoever stores holds the exclusive record lock of M,
 * whoever reads the shared one, or the exclusive one where it finishes a store that was broken off.
 *
 * A content is a number: a generation, `torn(n)` for what lies between the old bytes and those of
 * generation n, or an edit. What is on the device is kept beside what processes see (`onDevice`).
 *
 * Beside two users, who load and store, and a reader who must not write, there are
 * - kills: any process may end before any of its steps; what it did stays visible;
 * - a power loss at any moment: all processes end, and of what was not flushed each file and each
 *   entry of the directory has either state, or is torn;
 * - an editor that takes no lock and renames a whole new M over the old one, at any moment.
 *
 * Held against every state:
 * - no reader gets a torn file, or M and C of two generations, unless M was edited;
 * - a generation whose store returned is not lost: no reader gets an older one;
 * - what an editor wrote stays until a store that began behind it.
 *
 * -DFAULT=N plants a mistake; model.sh sees that each is found:
 *  1  nobody looks for a copy before he stores
 *  2  whoever finishes a store does not flush what he finds written
 *  3  a store is finished over an edit
 *  4  a store returns, though the path names another file by now
 *  5  the copy is not flushed before the files are written
 *  6  the copy goes before the files are flushed, and the main file is written first
 *  7  the copy goes before the main file is flushed
 *  8  whoever finishes a store does not flush the copy first, which its writer may not have done
 *  9  a copy is set aside before the rename that replaced the file is on the device
 * 10  ... or before the companion is
 * 11  old bytes that are put back are not flushed before the copy goes
 */

#ifndef FAULT
#define FAULT 0
#endif

#define absent 0
#define firstEdit 40
#define torn(n) (20 + (n))
#define isTorn(content) ((content) > 20 && (content) < firstEdit)
#define isEdit(content) ((content) >= firstEdit)

/* What lies between two contents is told by the later one, whichever way the store went. */
#define between(a, b) torn(isEdit(a) -> (b) : (isEdit(b) -> (a) : ((a) > (b) -> (a) : (b))))
#define areWhole(a, b) (!isTorn(a) && !isTorn(b))

/* Generation 2 has no secrets, so it names no companion: 2 drops it, 3 has its first one again. */
#define namesCompanion(n) ((n) != 2)

#define stores 3     /* numbers of generations, the first one included */

byte M = 1, C = 1, R = absent;                  /* as processes see them; R: whose copy it is */
byte M_onDevice = 1, C_onDevice = 1, R_onDevice = absent;
bool renameIsPending = false;                   /* of M, to its present inode */
byte inode = 1;                                 /* of M */

/* Of the copy of each generation. */
bool isComplete[stores + 1], isFlushed[stores + 1];
byte oldM[stores + 1], oldC[stores + 1];

bool isLocked = false;                          /* exclusively */
byte epoch = 0;                                 /* power losses */

byte kills = 2, powerLosses = 1, edits = 1;     /* that may still come */

/* What was promised. */
byte generations = 1;                           /* in the order of the locks */
byte acknowledged = 1;                          /* newest one whose store returned; 0: edited since */
byte edit = 0;                                  /* that has to be there; 0: none */

/* ---------------------------------------------------------------------------------- the steps */

/* Before each step: the process may be killed, or is gone with the power. */
inline mayEnd() {
    if
    :: epoch != mine -> goto ended
    :: epoch == mine && kills > 0 -> kills--; goto ended
    :: epoch == mine
    fi
}

inline lockExclusively() {
    atomic {
        !isLocked || epoch != mine;
        mayEnd();
        isLocked = true;
        isHolding = true;
        heldInode = inode
    }
}

inline unlock() {
    atomic {
        mayEnd();
        isLocked = false;
        isHolding = false
    }
}

/* Created exclusively: there is no other. */
inline makeCopy() {
    atomic {
        mayEnd();
#if FAULT != 1
        assert(R == absent);
#endif
        generations++;
        n = generations;
        R = n;
        isComplete[n] = false;
        isFlushed[n] = false
    }
}

inline fillCopy() {
    atomic {
        mayEnd();
        isComplete[n] = true;
        oldC[n] = C;
        if
        :: heldInode == inode -> oldM[n] = M; edit = 0    /* a store that has seen it began */
        :: else -> oldM[n] = absent                       /* of the replaced file: not what M is */
        fi
    }
}

inline flushCopy() { atomic { mayEnd(); isFlushed[n] = true } }

inline flushDirectory() {
    atomic {
        mayEnd();
        R_onDevice = R;
        if
        :: C == absent || C_onDevice == absent -> C_onDevice = C
        :: else
        fi;
        if
        :: renameIsPending -> M_onDevice = M; renameIsPending = false
        :: else
        fi
    }
}

inline putCompanion(content) {
    atomic {
        mayEnd();
        if
        :: C_onDevice != C && C_onDevice != absent -> C_onDevice = C
        :: true
        fi;
        C = content
    }
}

inline writeCompanion() {
    if
    :: namesCompanion(n) ->
        putCompanion(torn(n));
        putCompanion(n)
    :: else
    fi
}

/* A new one is on the device when the directory is flushed as well. */
inline flushCompanion() {
    if
    :: namesCompanion(n) ->
        atomic {
            mayEnd();
            if
            :: C_onDevice != absent -> C_onDevice = C
            :: else
            fi
        };
        flushDirectory()
    :: else
    fi
}

/* To the file that is locked. An editor may have replaced it: then it is seen no more, but it is
 * the one on the device while the rename is not flushed. */
inline putMain(content) {
    atomic {
        mayEnd();
        if
        :: heldInode == inode ->
            /* What was there may have come to the device by itself. */
            if
            :: M_onDevice != M && !renameIsPending -> M_onDevice = M
            :: true
            fi;
            M = content
        :: heldInode != inode && renameIsPending -> M_onDevice = content
        :: heldInode != inode
        fi
    }
}

inline writeMain() {
    putMain(torn(n));
    putMain(n)
}

inline flushMain(content) {
    atomic {
        mayEnd();
        if
        :: heldInode == inode -> M_onDevice = M
        :: heldInode != inode && renameIsPending -> M_onDevice = content
        :: heldInode != inode && !renameIsPending
        fi
    }
}

/* Only where the main file is the one that does not name it. */
inline removeCompanion() {
    atomic {
        mayEnd();
        if
        :: !namesCompanion(n) && M == n -> C = absent
        :: else
        fi
    }
}

inline removeCopy() { atomic { mayEnd(); R = absent } }

/* Renamed to `.NAME.zsave.old`: nobody reads it any more. */
inline setAside() { atomic { mayEnd(); R = absent } }

/* What a store does that cannot go on, because the disk is full: it raises, and promises nothing. The
 * copy stays until the old bytes are on the device. */
inline putBack() {
    putMain(torn(n));
    putMain(oldM[n]);
#if FAULT != 11
    flushMain(oldM[n]);
#endif
    if
    :: C != oldC[n] ->
        putCompanion((oldC[n] == absent -> absent : torn(n)));
        putCompanion(oldC[n])
    :: else
    fi;
    atomic {
        mayEnd();
        if
        :: C != absent && C_onDevice != absent -> C_onDevice = C
        :: else
        fi
    };
    flushDirectory();
    removeCopy();
    flushDirectory()
}

/* From the copy, which is there: both files as the store meant them. The copy is flushed again, and
 * so are bytes that are there already: a process that was killed may not have come to that. */
inline finishStore() {
#if FAULT != 8
    flushCopy();
    flushDirectory();
#endif
    writeCompanion();
#if FAULT != 2
    flushCompanion();
#endif
    writeMain();
#if FAULT != 2
    flushMain(n);
#endif
    removeCompanion();
    removeCopy();
    flushDirectory()
}

/* Under the exclusive lock, before anything else is done. */
inline finishOrSetAside() {
    if
    :: R == absent
    :: R != absent && !isComplete[R] -> removeCopy(); flushDirectory()
    :: R != absent && isComplete[R] ->
        n = R;
        if
#if FAULT == 3
        :: true -> heldInode = inode; finishStore()
#else
        :: M == oldM[n] || M == torn(n) || M == n -> finishStore()
        :: else ->
            /* Edited since. A companion between two generations is of no use to anybody, and one
             * that is whole may not be so on the device. */
            if
            :: C == torn(n) -> writeCompanion()
            :: else
            fi;
#if FAULT != 10
            flushCompanion();
#endif
#if FAULT != 9
            flushDirectory();    /* else a torn file could come back where the edit was */
#endif
            setAside();
            flushDirectory()
#endif
        fi
    fi
}

/* The path still names the file that was written: now the store may return. */
inline acknowledge() {
    atomic {
        mayEnd();
        if
#if FAULT == 4
        :: true -> acknowledged = n
#else
        :: heldInode == inode -> acknowledged = n
        :: else
#endif
        fi
    }
}

/* ------------------------------------------------------------------------------- the processes */

/* What somebody who read has got. */
inline judge(gotM, gotC) {
    assert(!isTorn(gotM));
    assert(!isTorn(gotC) || (!isEdit(gotM) && !namesCompanion(gotM)));
    assert(isEdit(gotM) || !namesCompanion(gotM) || gotC == gotM);
    assert(isEdit(gotM) || gotM >= acknowledged);
    assert(!isEdit(gotM) || acknowledged == 0);
    assert(edit == 0 || gotM == edit)
}

/* Loads, and at times stores. */
proctype user() {
    byte mine, n = 0, heldInode = 0;
    bool isHolding = false;
again:
    mine = epoch;
    lockExclusively();
#if FAULT != 1
    finishOrSetAside();
#endif
    if
    :: heldInode == inode && generations < stores
    :: heldInode == inode ->
        atomic {
            mayEnd();
            if
            :: heldInode == inode && (R == absent || !isComplete[R]) -> judge(M, C)
            :: else
            fi
        };
        goto done
    :: heldInode != inode -> goto done    /* the path is opened again */
    fi;
    makeCopy();
    fillCopy();
#if FAULT != 5
    flushCopy();
    flushDirectory();
#endif
#if FAULT == 6
    writeMain();
    removeCopy();
    flushMain(n);
    writeCompanion();
    flushCompanion();
#else
    writeCompanion();
    flushCompanion();
    putMain(torn(n));
    if
    :: oldM[n] != absent -> putBack(); goto done
    :: putMain(n)
    fi;
#if FAULT == 7
    removeCopy();
    flushDirectory();
#endif
    flushMain(n);
    removeCompanion();
    removeCopy();
#endif
    flushDirectory();
    acknowledge();
done:
    unlock();
    atomic { n = 0; heldInode = 0; goto again };
ended:
    atomic {
        if
        :: isHolding && epoch == mine -> isLocked = false
        :: else
        fi;
        isHolding = false;
        n = 0;
        heldInode = 0;
        goto again
    }
}

/* One that must not write: it finishes the store in what it has read. Its shared lock keeps users
 * off, so all of it is one step; an editor's rename between is as one before it. */
proctype reader() {
    byte gotM = 0, gotC = 0;
    do
    :: atomic {
        !isLocked ->
        gotM = M;
        gotC = C;
        if
        :: R != absent && isComplete[R] ->
            if
            :: gotM == oldM[R] || gotM == torn(R) || gotM == R ->
                gotM = R;
                gotC = (namesCompanion(R) -> R : gotC)
            :: else ->
                gotC = (gotC == torn(R) -> R : gotC)
            fi
        :: else
        fi;
        judge(gotM, gotC);
        gotM = 0;
        gotC = 0
    }
    od
}

/* Its new file is whole and flushed, the rename is not. What it did not see is its own loss. */
proctype editor() {
    do
    :: atomic {
        edits > 0;
        edits--;
        if
        :: M_onDevice != M -> M_onDevice = M
        :: M_onDevice != M && areWhole(M, M_onDevice) -> M_onDevice = between(M, M_onDevice)
        :: true
        fi;
        M = firstEdit + edits;
        edit = M;
        acknowledged = 0;
        inode++;
        renameIsPending = true
    }
    od
}

/* Each file has what is on the device, or what was seen, or something between. */
proctype power() {
    do
    :: atomic {
        powerLosses > 0;
        powerLosses--;
        epoch++;
        isLocked = false;
        if
        :: M != M_onDevice && !renameIsPending && areWhole(M, M_onDevice) ->
            M = between(M, M_onDevice)
        :: M = M_onDevice
        :: true
        fi;
        if
        :: C != absent && C != C_onDevice && areWhole(C, C_onDevice) -> C = between(C, C_onDevice)
        :: C = C_onDevice
        :: true
        fi;
        if
        :: R = R_onDevice
        :: true
        fi;
        if
        :: R != absent && !isFlushed[R] -> isComplete[R] = false
        :: true
        fi;
        if
        :: edit != 0 && M != edit -> edit = 0
        :: else
        fi;
        M_onDevice = M;
        C_onDevice = C;
        R_onDevice = R;
        renameIsPending = false
    }
    od
}

init {
    atomic {
        run user();
        run user();
        run reader();
        run editor();
        run power()
    }
}
