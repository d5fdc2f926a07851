#pragma once

#include "korv/common/api.h"
#include "korv/common/container/basicstring.h"
#include "korv/common/container/nodecontainers.h"
#include "korv/common/types.h"

namespace KORV::Common::Exceptions
{
/// Named parameters of an exception as text, ordered by name.
using ParameterMap = Container::Map<BasicString, BasicString>;

/// Root of all library exceptions. They are thrown as pointers; whoever catches one deletes it:
/// `catch (IOException* error) { ...; delete error; }`
class KORV_COMMON_API Exception
{
public:
    explicit Exception(const BasicString& message);
    Exception(const Exception&) = delete;
    Exception& operator=(const Exception&) = delete;
    /// Deletes the inner exception.
    virtual ~Exception();

    /// @return the name of the class.
    virtual BasicString getName() const;
    /// Shows the description, followed by the call stack if one is given, on standard error under the class's name.
    virtual void show(const BasicString* callStack = nullptr) const;
    /// Adds the class's own parameters.
    virtual void addParameters(ParameterMap& parameters) const;

    const BasicString& getMessage() const { return mMessage; }
    /// The message, the names of the inner exceptions and the parameters, a line each.
    BasicString getDescription() const;

    /// The exception that caused this one, or null; owned by this one.
    Exception* getInnerException() const { return mInner; }
    /// Takes ownership; a previous inner exception is deleted.
    void setInnerException(Exception* inner);

    /// Memory of the foundation's exception allocator.
    static void* operator new(size_t size);
    static void operator delete(void* object);
    static void* operator new[](size_t) = delete;

protected:
    struct KeepText
    {
    };
    /// A message that keeps the allocator it was made with.
    Exception(KeepText, BasicString&& message);

private:
    Memory::AllocatorPtr mAllocator; // keeps the allocator of object and texts alive
    BasicString mMessage;
    Exception* mInner = nullptr;
};

/// An argument is not what the function asks for.
class KORV_COMMON_API ArgumentException : public Exception
{
public:
    ArgumentException(const BasicString& argumentName, const BasicString& message);
    BasicString getName() const override;
    void addParameters(ParameterMap& parameters) const override;
    const BasicString& getArgumentName() const { return mArgumentName; }

private:
    BasicString mArgumentName;
};

class KORV_COMMON_API ArgumentNullException : public ArgumentException
{
public:
    using ArgumentException::ArgumentException;
    BasicString getName() const override;
};

class KORV_COMMON_API ArgumentOutOfRangeException : public ArgumentException
{
public:
    using ArgumentException::ArgumentException;
    BasicString getName() const override;
};

/// The object is not in a state in which the operation makes sense.
class KORV_COMMON_API InvalidStateException : public Exception
{
public:
    using Exception::Exception;
    BasicString getName() const override;
};

class KORV_COMMON_API NotSupportedException : public Exception
{
public:
    using Exception::Exception;
    BasicString getName() const override;
};

class KORV_COMMON_API UnAuthorizedAccessException : public Exception
{
public:
    using Exception::Exception;
    BasicString getName() const override;
};
} // namespace KORV::Common::Exceptions
