#include "korv/navmesh/geometryimporter.h"

#include "korv/common/debug/assert.h"
#include "korv/common/io/ioexception.h"
#include "korv/common/parser/vrml2/meshgen.h"
#include "korv/common/parser/vrml2/parser.h"

#include <memory>

namespace KORV::NavMesh::GeometryImporter
{
namespace
{
namespace VRML2 = Common::Parser::VRML2;
using Common::Exceptions::Exception;

GeometryImportError::Cause describe(const Exception& exception)
{
    GeometryImportError::Cause cause;
    cause.mMessage = exception.getMessage();
    if (const auto* refused = dynamic_cast<const VRML2::VRML2ParserException*>(&exception))
    {
        cause.mFileName = refused->getFileName();
        cause.mLine = refused->getLine();
        cause.mRow = refused->getRow();
        if (!refused->getExplanation().empty())
            cause.mMessage.append(" (").append(refused->getExplanation()).append(")");
    }
    else if (const auto* file = dynamic_cast<const Common::IO::FileException*>(&exception))
        cause.mFileName = file->getFileName();
    return cause;
}

void describe(GeometryImportError& error, const Exception& exception, const BasicString& fileName)
{
    GeometryImportError::Cause cause = describe(exception);
    error.mFileName = cause.mFileName.empty() ? fileName : cause.mFileName;
    error.mLine = cause.mLine;
    error.mRow = cause.mRow;
    error.mMessage = std::move(cause.mMessage);
    for (const Exception* inner = exception.getInnerException(); inner != nullptr; inner = inner->getInnerException())
        error.mInner.push_back(describe(*inner));
}

/// Fills the record as far as memory allows.
void tryDescribe(GeometryImportError& error, const Exception& exception, const BasicString& fileName)
{
    try
    {
        describe(error, exception, fileName);
    }
    catch (Exception* noMemory)
    {
        delete noMemory;
    }
}
} // namespace

VRML2Importer::~VRML2Importer() = default;

bool VRML2Importer::importGeometry(Vector<Vec3<float>>& vertices, Vector<IndexedTriangle>& triangles,
                                   const BasicString& fileName)
{
    GeometryImportError error;
    return importGeometry(vertices, triangles, fileName, error);
}

bool VRML2Importer::importGeometry(Vector<Vec3<float>>& vertices, Vector<IndexedTriangle>& triangles,
                                   const BasicString& fileName, GeometryImportError& error)
{
    Common::IO::FileSystem fileSystem;
    return importGeometry(vertices, triangles, fileName, error, fileSystem);
}

bool VRML2Importer::importGeometry(Vector<Vec3<float>>& vertices, Vector<IndexedTriangle>& triangles,
                                   const BasicString& fileName, GeometryImportError& error,
                                   Common::IO::FileSystem& fileSystem)
{
    error = GeometryImportError();
    try
    {
        VRML2::Parser parser;
        parser.setSkipUnknownNodes(true);
        const std::unique_ptr<VRML2::SceneNode> root(parser.parse(fileName, &fileSystem));
        VRML2::MeshGen generator;
        generator.generate(vertices, triangles, root.get());
        return true;
    }
    catch (Exception* failure)
    {
        const std::unique_ptr<Exception> owner(failure);
        tryDescribe(error, *failure, fileName);
        KORV_FAIL("Cannot parse VRML2 file: " << fileName << " because: " << failure->getMessage());
        return false;
    }
}
} // namespace KORV::NavMesh::GeometryImporter
