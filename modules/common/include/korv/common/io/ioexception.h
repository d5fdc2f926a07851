#pragma once

#include "korv/common/exceptions/exception.h"

namespace KORV::Common::IO
{
class KORV_COMMON_API IOException : public Exceptions::Exception
{
public:
    using Exception::Exception;
    BasicString getName() const override;
};

class KORV_COMMON_API OutOfSpaceException : public IOException
{
public:
    using IOException::IOException;
    BasicString getName() const override;
};

class KORV_COMMON_API FileException : public IOException
{
public:
    FileException(const BasicString& fileName, const BasicString& fullFileName, const BasicString& message);
    BasicString getName() const override;
    void addParameters(Exceptions::ParameterMap& parameters) const override;
    const BasicString& getFileName() const { return mFileName; }
    const BasicString& getFullFileName() const { return mFullFileName; }

private:
    BasicString mFileName;
    BasicString mFullFileName;
};

class KORV_COMMON_API FileNotFoundException : public FileException
{
public:
    using FileException::FileException;
    BasicString getName() const override;
};

class KORV_COMMON_API FileExistException : public FileException
{
public:
    using FileException::FileException;
    BasicString getName() const override;
};

class KORV_COMMON_API DirectoryException : public IOException
{
public:
    DirectoryException(const BasicString& directory, const BasicString& message);
    BasicString getName() const override;
    void addParameters(Exceptions::ParameterMap& parameters) const override;
    const BasicString& getDirectory() const { return mDirectory; }

private:
    BasicString mDirectory;
};

class KORV_COMMON_API DirectoryExistsException : public DirectoryException
{
public:
    using DirectoryException::DirectoryException;
    BasicString getName() const override;
};

class KORV_COMMON_API DirectoryNotEmptyException : public DirectoryException
{
public:
    using DirectoryException::DirectoryException;
    BasicString getName() const override;
};

class KORV_COMMON_API DirectoryNotFoundException : public DirectoryException
{
public:
    using DirectoryException::DirectoryException;
    BasicString getName() const override;
};
} // namespace KORV::Common::IO
