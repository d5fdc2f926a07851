#include "korv/navmesh/resourceinterface.h"

#include "korv/common/callback/callbackfilestream.h"

namespace KORV::NavMesh
{
using Common::Stream;
using Common::Callback::CallbackFileStream;

ResourceInterface::ResourceInterface(const SharedPtr<Common::Callback::FileIOCallback>& fileIO) : mFileIO(fileIO) {}

ResourceInterface::~ResourceInterface() = default;

SharedPtr<Stream> ResourceInterface::openRead(const BasicString& path)
{
    return open(path, Common::IO::FACCESS_READ);
}

SharedPtr<Stream> ResourceInterface::openReadWrite(const BasicString& path)
{
    return open(path, Common::IO::FACCESS_READWRITE);
}

SharedPtr<Stream> ResourceInterface::openWrite(const BasicString& path)
{
    return open(path, Common::IO::FACCESS_WRITE);
}

SharedPtr<Stream> ResourceInterface::open(const BasicString& path, uint32 access)
{
    CallbackFileStream* const file = new (getAllocator()) CallbackFileStream(mFileIO);
    SharedPtr<Stream> stream(file);
    file->openFile(path, access);
    return stream;
}
} // namespace KORV::NavMesh
