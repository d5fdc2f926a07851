#pragma once

#include "korv/common/exceptions/exception.h"

namespace KORV::Common::Serialize
{
class KORV_COMMON_API SerializeException : public Exceptions::Exception
{
public:
    using Exception::Exception;
    BasicString getName() const override;
};

class KORV_COMMON_API VersionMismatchException : public SerializeException
{
public:
    VersionMismatchException(const BasicString& message, int32 foundVersion, int32 expectedVersion);
    BasicString getName() const override;
    void addParameters(Exceptions::ParameterMap& parameters) const override;
    int32 getFoundVersion() const { return mFoundVersion; }
    int32 getExpectedVersion() const { return mExpectedVersion; }

private:
    int32 mFoundVersion;
    int32 mExpectedVersion;
};

class KORV_COMMON_API TypeMismatchException : public SerializeException
{
public:
    TypeMismatchException(const BasicString& message, const BasicString& foundType, const BasicString& expectedType);
    BasicString getName() const override;
    void addParameters(Exceptions::ParameterMap& parameters) const override;
    const BasicString& getFoundType() const { return mFoundType; }
    const BasicString& getExpectedType() const { return mExpectedType; }

private:
    BasicString mFoundType;
    BasicString mExpectedType;
};
} // namespace KORV::Common::Serialize
