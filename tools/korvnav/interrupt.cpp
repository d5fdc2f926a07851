#include "interrupt.h"

#include "failure.h"

#include <csignal>
#include <unistd.h>

namespace KORV::Tool
{
namespace
{
constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t gSignal = 0;
volatile std::sig_atomic_t gPolled = 0;

extern "C" void noteSignal(int number)
{
    gSignal = number;
    if (gPolled == 0)
        _exit(static_cast<int>(ExitCode::Signal) + number);
}

void handleWith(void (*handler)(int))
{
    for (const int number : SIGNALS)
    {
        struct sigaction old = {};
        sigaction(number, nullptr, &old);
        if (old.sa_handler == SIG_IGN) // as under nohup
            continue;
        struct sigaction action = {};
        action.sa_handler = handler;
        action.sa_flags = SA_RESTART; // a read or write that is under way goes on
        sigemptyset(&action.sa_mask);
        sigaction(number, &action, nullptr);
    }
}
} // namespace

Interrupt::Interrupt()
{
    gSignal = 0;
    gPolled = 0;
    handleWith(&noteSignal);
}

Interrupt::~Interrupt()
{
    handleWith(SIG_DFL);
}

void Interrupt::poll(bool polled)
{
    gPolled = polled ? 1 : 0;
}

bool Interrupt::requested()
{
    return gSignal != 0;
}

void Interrupt::throwIfRequested()
{
    if (gSignal != 0)
        throw Failure(static_cast<int>(ExitCode::Signal) + gSignal, "stopped; nothing was written.");
}
} // namespace KORV::Tool
