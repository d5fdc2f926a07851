#include "korv/common/threading/task.h"

namespace KORV::Common::Threading
{
Threaded::~Threaded() = default;

Task::~Task() = default;

void Task::execute()
{
    mFinished = false;
    mRunning = true;
    run();
    mRunning = false;
    mFinished = true;
}
} // namespace KORV::Common::Threading
