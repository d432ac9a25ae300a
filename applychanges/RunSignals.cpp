#include "applychanges/RunSignals.h"

#include <pthread.h>
#include <signal.h>

#include <cstring>
#include <initializer_list>

namespace {

volatile sig_atomic_t firstSignal = 0;

void note(int signal)
{
    if (firstSignal == 0)
        firstSignal = signal;
}

} // namespace

void RunSignals::install()
{
    struct sigaction ignore;
    memset(&ignore, 0, sizeof(ignore));
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, nullptr);
    sigaction(SIGXFSZ, &ignore, nullptr);

    struct sigaction noted;
    memset(&noted, 0, sizeof(noted));
    noted.sa_handler = note;
    noted.sa_flags = SA_RESTART;
    sigemptyset(&noted.sa_mask);
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &noted, nullptr);
}

void RunSignals::blockInThisThread()
{
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

int RunSignals::received()
{
    return firstSignal;
}
