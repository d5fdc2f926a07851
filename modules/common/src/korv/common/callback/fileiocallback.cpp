#include "korv/common/callback/fileiocallback.h"

namespace KORV::Common::Callback
{
FileIOCallback::~FileIOCallback() = default;
} // namespace KORV::Common::Callback
