#pragma once

namespace KORV::Tool
{
/// Turns Ctrl-C and the signals that ask a program to end into a clean stop. A program has one at a time.
/// While nothing has been written the signal ends the program at once. Between `poll(true)` and `poll(false)` it only
/// leaves a note: whoever works then looks at it and puts things in order before ending.
class Interrupt
{
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    void poll(bool polled);
    /// Whether a signal has come.
    static bool requested();
    /// Throws Failure with 128 and the signal's number when a signal has come.
    static void throwIfRequested();
};
} // namespace KORV::Tool
