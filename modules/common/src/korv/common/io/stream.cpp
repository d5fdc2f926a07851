#include "korv/common/io/stream.h"

namespace KORV::Common::IO
{
Stream::~Stream() = default;
} // namespace KORV::Common::IO
