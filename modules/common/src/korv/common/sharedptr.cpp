#include "korv/common/sharedptr.h"

namespace KORV::Common
{
ReferenceCounted::~ReferenceCounted() = default;

LockedReferenceCounted::~LockedReferenceCounted() = default;
} // namespace KORV::Common
