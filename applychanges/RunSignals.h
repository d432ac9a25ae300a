// How a run meets signals: a closed output pipe and a file size limit become errors the run
// reports, and an interrupt, a termination or a hang-up ends it after what was verified is in place.
#ifndef APPLYCHANGES_RUNSIGNALS_H
#define APPLYCHANGES_RUNSIGNALS_H

/** Process-wide signal set-up of the driver. */
class RunSignals
{
public:
    /** Ignores SIGPIPE and SIGXFSZ (the writes then fail with EPIPE and EFBIG, which the run
     *  reports) and notes SIGINT, SIGTERM and SIGHUP instead of dying of them. */
    static void install();
    /** Keeps the noted signals away from the calling thread (a helper thread), so that the main
     *  thread receives them. */
    static void blockInThisThread();
    /** The first noted signal, 0 while none came. */
    static int received();
};

#endif
