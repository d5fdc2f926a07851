#pragma once

#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Why a scene file could not be imported.
struct GeometryImportError
{
    /// One link of the chain of causes.
    struct Cause
    {
        BasicString mFileName; ///< empty when the cause lies in no particular file
        uint32 mLine = 0;      ///< [from 1; 0: none]
        uint32 mRow = 0;       ///< place in the line [bytes]
        BasicString mMessage;
    };

    BasicString mFileName; ///< the file that holds the statement at fault, or that could not be opened
    uint32 mLine = 0;      ///< [from 1; 0: the failure belongs to no line]
    uint32 mRow = 0;       ///< place in the line [bytes]
    BasicString mMessage;  ///< which statement was refused and why, for a person
    Vector<Cause> mInner;  ///< what caused it, the nearest cause first; for a file that another one refers to
};
} // namespace KORV::NavMesh
