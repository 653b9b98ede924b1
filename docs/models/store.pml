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
 * Beside two writers and a reader there are
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
 * -DFAULT=1 to 7 plants one mistake each; model.sh sees that each is found.
 */

#ifndef FAULT
#define FAULT 0
#endif

#define absent 0
#define firstEdit 40
#define torn(n) (20 + (n))
#define isTorn(content) ((content) > 20 && (content) < firstEdit)
#define isEdit(content) ((content) >= firstEdit)

/* Generation 2 has no secrets, so it names no companion: 2 drops it, 3 has its first one again. */
#define namesCompanion(n) ((n) != 2)

#define stores 4     /* numbers of generations, the first one included */

byte M = 1, C = 1, R = absent;                  /* as processes see them; R: whose copy it is */
byte M_onDevice = 1, C_onDevice = 1, R_onDevice = absent;
bool renameIsPending = false;                   /* of M, to its present inode */
byte inode = 1;                                 /* of M */

/* Of the copy of each generation. */
bool isComplete[stores + 1], isFlushed[stores + 1];
byte oldM[stores + 1];

bool isLocked = false;                          /* exclusively */
byte sharers = 0;
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
        (!isLocked && sharers == 0) || epoch != mine;
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

inline writeCompanion() {
    if
    :: namesCompanion(n) ->
        atomic { mayEnd(); C = torn(n) };
        atomic { mayEnd(); C = n }
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

/* To the file that is locked, which an editor may have replaced. */
inline writeMain() {
    atomic {
        mayEnd();
        if
        :: heldInode == inode -> M = torn(n)
        :: else
        fi
    };
    atomic {
        mayEnd();
        if
        :: heldInode == inode -> M = n
        :: else
        fi
    }
}

inline flushMain() {
    atomic {
        mayEnd();
        if
        :: heldInode == inode -> M_onDevice = M
        :: else
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

/* From the copy, which is there: both files as the store meant them. The bytes that are there
 * already are flushed too: a process that was killed may not have come to that. */
inline finishStore() {
    writeCompanion();
#if FAULT != 2
    flushCompanion();
#endif
    writeMain();
#if FAULT != 2
    flushMain();
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
            /* Edited since. A companion between two generations is of no use to anybody. */
            if
            :: C == torn(n) -> writeCompanion(); flushCompanion()
            :: else
            fi;
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

proctype writer() {
    byte mine, n = 0, heldInode;
    bool isHolding = false;
again:
    atomic {
        generations < stores -> mine = epoch;
        isHolding = false
    };
    lockExclusively();
#if FAULT != 1
    finishOrSetAside();
#endif
    if
    :: heldInode != inode || generations >= stores -> unlock(); goto again
    :: else
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
    flushMain();
    writeCompanion();
    flushCompanion();
#else
    writeCompanion();
    flushCompanion();
    writeMain();
#if FAULT == 7
    removeCopy();
    flushDirectory();
#endif
    flushMain();
    removeCompanion();
    removeCopy();
#endif
    flushDirectory();
    acknowledge();
    unlock();
    goto again;
ended:
    atomic {
        if
        :: isHolding && epoch == mine -> isLocked = false
        :: else
        fi;
        isHolding = false;
        goto again
    }
}

/* What a reader has got. */
inline judge() {
    assert(!isTorn(gotM));
    assert(!isTorn(gotC) || (!isEdit(gotM) && !namesCompanion(gotM)));
    assert(isEdit(gotM) || !namesCompanion(gotM) || gotC == gotM);
    assert(isEdit(gotM) || gotM >= acknowledged);
    assert(!isEdit(gotM) || acknowledged == 0);
    assert(edit == 0 || gotM == edit)
}

/* One that must not write: it finishes the store in what it has read. */
inline readOnly() {
    atomic {
        !isLocked || epoch != mine;
        mayEnd();
        sharers++;
        isHolding = true
    };
    /* At once: the editor's rename before or behind it is another state, and the file is open. */
    atomic {
        mayEnd();
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
        judge()
    };
    atomic {
        mayEnd();
        sharers--;
        isHolding = false
    }
}

inline recoverAndRead() {
    lockExclusively();
    isExclusive = true;
    finishOrSetAside();
    atomic {
        mayEnd();
        gotM = M;
        gotC = C;
        if
        :: R == absent -> judge()    /* else it was edited meanwhile, and is looked at again */
        :: else
        fi
    };
    unlock();
    isExclusive = false
}

proctype reader() {
    byte mine, n = 0, heldInode, gotM, gotC;
    bool isHolding, isExclusive;
again:
    atomic {
        mine = epoch;
        isHolding = false;
        isExclusive = false;
        n = 0; heldInode = 0; gotM = 0; gotC = 0
    };
    if
    :: readOnly()
    :: recoverAndRead()
    fi;
    goto again;
ended:
    atomic {
        if
        :: isHolding && epoch == mine && isLocked -> isLocked = false
        :: isHolding && epoch == mine && !isLocked -> sharers--
        :: else
        fi;
        goto again
    }
}

/* Its new file is whole and flushed, the rename is not. What it did not see is its own loss. */
proctype editor() {
    do
    :: atomic {
        edits > 0;
        edits--;
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
        sharers = 0;
        if
        :: M != M_onDevice && !renameIsPending && !isTorn(M) -> M = torn(M)
        :: M = M_onDevice
        :: true
        fi;
        if
        :: C != absent && C != C_onDevice && !isTorn(C) -> C = torn(C)
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
        run writer();
        run writer();
        run reader();
        run editor();
        run power()
    }
}
