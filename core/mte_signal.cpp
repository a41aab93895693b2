// The stop signal: SIGRTMIN+1 is blocked and read through a signalfd in the
// main epoll set; its handler closes the management channel's doors and sets
// the pre-stop flag, after which the main loop ends once the last open
// management connection has closed. Every other signal keeps its default
// action. Main thread only; no lock.
#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstring>

#include "mte_core.h"
#include "mte_tarn.h"

namespace {

int g_iSignalFd = -1;
// Set once a stop was requested or start-up failed; never cleared.
uint16_t g_usVigilPreStop = 0;

int mte_signal_StopSignal(void) {
    return SIGRTMIN + 1;
}

void mte_signal_Proc(uint32_t uiEvents, int iFd) {
    if (uiEvents & EPOLLIN) {
        struct signalfd_siginfo stInfo;
        memset(&stInfo, 0, sizeof(stInfo));
        ssize_t lRead = read(iFd, &stInfo, sizeof(stInfo));
        if (lRead == static_cast<ssize_t>(sizeof(stInfo)) &&
            stInfo.ssi_signo == static_cast<uint32_t>(mte_signal_StopSignal())) {
            // Close the doors first (listening socket, trap switch, port
            // subscription); open connections drain before the loop ends.
            mte_TARN_Fini();
            mte_SetVigilPreStop();
        }
    }
    if (uiEvents & (EPOLLERR | EPOLLHUP)) {
        // A broken descriptor is replaced; if that fails the daemon runs on
        // and can only be stopped by a signal that is not blocked.
        mte_SignalFini();
        (void)mte_SignalInit();
    }
}

}  // namespace

uint32_t mte_SignalInit(void) {
    sigset_t stSet;
    sigemptyset(&stSet);
    sigaddset(&stSet, mte_signal_StopSignal());
    // Blocked before the worker thread exists, so the worker inherits the
    // mask and the signal can only be consumed through the descriptor.
    (void)sigprocmask(SIG_BLOCK, &stSet, nullptr);

    int iFd = signalfd(-1, &stSet, SFD_CLOEXEC);
    if (iFd < 0) {
        return MTE_ERR_GENERAL;
    }
    uint32_t uiRet = mte_EPOLL_Add(iFd, mte_signal_Proc);
    if (uiRet != MTE_OK) {
        (void)close(iFd);
        return uiRet;
    }
    g_iSignalFd = iFd;
    return MTE_OK;
}

void mte_SignalFini(void) {
    if (g_iSignalFd != -1) {
        (void)mte_EPOLL_Del(g_iSignalFd);
        (void)close(g_iSignalFd);
        g_iSignalFd = -1;
    }
}

uint16_t mte_IsVigilPreStop(void) {
    return g_usVigilPreStop;
}

void mte_SetVigilPreStop(void) {
    g_usVigilPreStop = 1;
}
