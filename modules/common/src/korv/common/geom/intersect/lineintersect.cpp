#include "korv/common/geom/intersect/lineintersect.h"

#include "korv/common/debug/assert.h"

namespace KORV::Common::Geom::Intersect
{
void reportZeroDirection()
{
    KORV_COMMON_ASSERT("KORV::Common::Geom::Intersect::LineRay", false, "!(dir.mX == 0.0f && dir.mY == 0.0f)",
                       "direction is of length zero");
}
} // namespace KORV::Common::Geom::Intersect
