#pragma once

#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// A class of characters that walk the mesh. Lengths are in world units.
struct CharacterInfo
{
    BasicString mName;            ///< unique among the characters of a mesh
    int64 mUserID = 0;            ///< the host's own identifier, carried through unchanged
    float mPhysicalHeight = 0.0f; ///< height of the body; its distinct values make the height classes
    float mJumpHeight = 0.0f;     ///< largest height it can step or jump up
    float mFallHeight = 0.0f;     ///< largest height it can drop down
    uint32 mMaxHeightClassID = 0; ///< output of a generation: the height class of mPhysicalHeight
};
} // namespace KORV::NavMesh
