#pragma once

#include "korv/common/container/basicstring.h"
#include "korv/common/container/vector.h"
#include "korv/common/geom/indexedtriangle.h"
#include "korv/common/math/matrix4.h"
#include "korv/common/math/vec2.h"
#include "korv/common/math/vec3.h"
#include "korv/common/platform/endian.h"
#include "korv/common/sharedptr.h"
#include "korv/common/types.h"

namespace KORV::NavMesh
{
// The foundation's everyday types under this module's name.
using Common::BasicString;
using Common::SharedPtr;
using Common::Vector;
using Common::Geom::IndexedTriangle;
using Common::Math::Matrix4;
using Common::Math::Vec2;
using Common::Math::Vec3;
using Common::Platform::Endian::ENDIAN_BIG;
using Common::Platform::Endian::ENDIAN_LITTLE;
using Common::Platform::Endian::Endiness;
} // namespace KORV::NavMesh
