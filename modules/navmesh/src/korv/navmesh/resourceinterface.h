#pragma once

#include "korv/common/callback/fileiocallback.h"
#include "korv/common/io/stream.h"
#include "korv/common/singleton.h"
#include "korv/navmesh/types.h"

namespace KORV::NavMesh
{
/// Opens files by name through the host's file callback. The failures are those of CallbackFileStream::openFile.
class ResourceInterface : public Common::Singleton<ResourceInterface>
{
public:
    static constexpr const char* SINGLETON_NAME =
        "KORV::Common::Singleton<class KORV::NavMesh::ResourceInterface>::createInstance";

    explicit ResourceInterface(const SharedPtr<Common::Callback::FileIOCallback>& fileIO);
    ~ResourceInterface() override;

    SharedPtr<Common::Stream> openRead(const BasicString& path);
    SharedPtr<Common::Stream> openReadWrite(const BasicString& path);
    /// Creates the file, or empties it.
    SharedPtr<Common::Stream> openWrite(const BasicString& path);

private:
    SharedPtr<Common::Stream> open(const BasicString& path, uint32 access);

    SharedPtr<Common::Callback::FileIOCallback> mFileIO;
};
} // namespace KORV::NavMesh
