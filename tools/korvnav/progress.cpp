#include "progress.h"

#include "interrupt.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace KORV::Tool
{
namespace
{
constexpr int BAR_WIDTH = 24;
constexpr std::chrono::milliseconds PAUSE(80); // between two looks of the line

std::size_t terminalWidth()
{
    winsize size = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80u;
}
} // namespace

Progress::Progress(bool wanted) : mShown(wanted && isatty(STDERR_FILENO) == 1) {}

Progress::~Progress()
{
    clear();
}

void Progress::step(const std::string& text)
{
    mStage.clear();
    if (mShown)
        show(text + " ...");
}

bool Progress::onProgress(const char* stage, float fraction)
{
    if (mShown)
    {
        const Clock::time_point now = Clock::now();
        if (mStage != stage || now - mLast >= PAUSE)
        {
            mStage = stage;
            mLast = now;
            const float part = std::clamp(fraction, 0.0f, 1.0f);
            const auto filled = static_cast<std::size_t>(part * static_cast<float>(BAR_WIDTH));
            char percent[8];
            std::snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(part * 100.0f));
            show("[" + std::string(filled, '#') + std::string(BAR_WIDTH - filled, ' ') + "] " + percent + "  " +
                 mStage);
        }
    }
    return !Interrupt::requested();
}

void Progress::clear()
{
    if (!mLineInUse)
        return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    mLineInUse = false;
}

void Progress::show(const std::string& text)
{
    const std::string line = "\r" + text.substr(0, terminalWidth() - 1) + "\033[K";
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
    mLineInUse = true;
}
} // namespace KORV::Tool
