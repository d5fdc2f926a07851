#include "korv/common/exceptions/exception.h"

#include "korv/common/interface.h"
#include "korv/common/io/ioexception.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/common/memory/objectmemory.h"
#include "korv/common/parser/parserexception.h"
#include "korv/common/platform/console.h"
#include "korv/common/serialize/serializeexception.h"

#include <charconv>

namespace KORV::Common
{
namespace
{
/// Texts of exceptions live on the exceptions' own allocator.
BasicString exceptionText(const BasicString& text)
{
    Memory::Allocator* allocator = Interface::getExceptionAllocator().get();
    return {text, Memory::STLAllocator<char>(allocator != nullptr ? allocator : Memory::getDefaultAllocator())};
}

template <class Integer>
BasicString decimal(Integer value)
{
    char digits[16];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof(digits), value);
    return {digits, static_cast<size_t>(result.ptr - digits)};
}
} // namespace

namespace Exceptions
{
Exception::Exception(const BasicString& message) : Exception(KeepText(), exceptionText(message)) {}

Exception::Exception(KeepText, BasicString&& message)
    : mAllocator(Memory::ObjectMemory<Memory::AllocatorPtr>::adopt(this)), mMessage(std::move(message))
{
}

Exception::~Exception()
{
    // A loop, so that a long chain does not nest the destructors.
    for (Exception* inner = mInner; inner != nullptr;)
    {
        Exception* next = std::exchange(inner->mInner, nullptr);
        delete inner;
        inner = next;
    }
}

BasicString Exception::getName() const
{
    return "Exception";
}

void Exception::show(const BasicString* callStack) const
{
    BasicString text = getName() + "\n" + getDescription();
    if (callStack != nullptr)
        text += "\nCallStack:\n   " + *callStack;
    Platform::writeStandardError(text + "\n");
}

void Exception::addParameters(ParameterMap&) const {}

BasicString Exception::getDescription() const
{
    BasicString text = "Error: " + mMessage;
    if (mInner != nullptr)
        text += "\nInner Exceptions:";
    for (const Exception* inner = mInner; inner != nullptr; inner = inner->mInner)
        text += "\n   " + inner->getName();

    ParameterMap parameters;
    addParameters(parameters);
    if (!parameters.empty())
        text += "\nParameters:";
    for (const auto& [name, value] : parameters)
        text += "\n   " + name + ": " + value;
    return text;
}

void Exception::setInnerException(Exception* inner)
{
    if (inner == mInner)
        return;
    delete mInner;
    mInner = inner;
}

void* Exception::operator new(size_t size)
{
    void* object = Memory::ObjectMemory<Memory::AllocatorPtr>::create(size, alignof(std::max_align_t),
                                                                      Interface::getExceptionAllocator());
    if (object == nullptr)
        Memory::throwOutOfMemory();
    return object;
}

void Exception::operator delete(void* object)
{
    Memory::ObjectMemory<Memory::AllocatorPtr>::destroy(object);
}

ArgumentException::ArgumentException(const BasicString& argumentName, const BasicString& message)
    : Exception(message), mArgumentName(exceptionText(argumentName))
{
}

BasicString ArgumentException::getName() const
{
    return "ArgumentException";
}

void ArgumentException::addParameters(ParameterMap& parameters) const
{
    parameters["ArgumentName"] = mArgumentName;
}

BasicString ArgumentNullException::getName() const
{
    return "ArgumentNullException";
}

BasicString ArgumentOutOfRangeException::getName() const
{
    return "ArgumentOutOfRangeException";
}

BasicString InvalidStateException::getName() const
{
    return "InvalidStateException";
}

BasicString NotSupportedException::getName() const
{
    return "NotSupportedException";
}

BasicString UnAuthorizedAccessException::getName() const
{
    return "UnAuthorizedAccessException";
}
} // namespace Exceptions

namespace Memory
{
BasicString MemoryException::getName() const
{
    return "MemoryException";
}

BasicString OutOfMemoryException::getName() const
{
    return "OutOfMemoryException";
}
} // namespace Memory

namespace IO
{
BasicString IOException::getName() const
{
    return "IOException";
}

BasicString OutOfSpaceException::getName() const
{
    return "OutOfSpaceException";
}

FileException::FileException(const BasicString& fileName, const BasicString& fullFileName, const BasicString& message)
    : IOException(message), mFileName(exceptionText(fileName)), mFullFileName(exceptionText(fullFileName))
{
}

BasicString FileException::getName() const
{
    return "FileException";
}

void FileException::addParameters(Exceptions::ParameterMap& parameters) const
{
    parameters["Filename"] = mFileName;
    parameters["FullFilename"] = mFullFileName;
}

BasicString FileNotFoundException::getName() const
{
    return "FileNotFoundException";
}

BasicString FileExistException::getName() const
{
    return "FileExistException";
}

DirectoryException::DirectoryException(const BasicString& directory, const BasicString& message)
    : IOException(message), mDirectory(exceptionText(directory))
{
}

BasicString DirectoryException::getName() const
{
    return "DirectoryException";
}

void DirectoryException::addParameters(Exceptions::ParameterMap& parameters) const
{
    parameters["Directory"] = mDirectory;
}

BasicString DirectoryExistsException::getName() const
{
    return "DirectoryExistsException";
}

BasicString DirectoryNotEmptyException::getName() const
{
    return "DirectoryNotEmptyException";
}

BasicString DirectoryNotFoundException::getName() const
{
    return "DirectoryNotFoundException";
}
} // namespace IO

namespace Parser
{
ParserException::ParserException(const BasicString& message, uint32 line, uint32 row)
    : Exception(message), mLine(line), mRow(row)
{
}

BasicString ParserException::getName() const
{
    return "ParserException";
}

void ParserException::addParameters(Exceptions::ParameterMap& parameters) const
{
    parameters["Line"] = decimal(mLine);
    parameters["Row"] = decimal(mRow);
}

BasicString XML::XMLParserException::getName() const
{
    return "XMLParserException";
}

VRML2::VRML2ParserException::VRML2ParserException(uint32 line, uint32 row, const BasicString& fileName,
                                                  const BasicString& message)
    : ParserException(message, line, row), mFileName(exceptionText(fileName))
{
}

BasicString VRML2::VRML2ParserException::getName() const
{
    return "VRML2ParserException";
}
} // namespace Parser

namespace Serialize
{
BasicString SerializeException::getName() const
{
    return "SerializeException";
}

VersionMismatchException::VersionMismatchException(const BasicString& message, int32 foundVersion,
                                                   int32 expectedVersion)
    : SerializeException(message), mFoundVersion(foundVersion), mExpectedVersion(expectedVersion)
{
}

BasicString VersionMismatchException::getName() const
{
    return "VersionMismatchException";
}

void VersionMismatchException::addParameters(Exceptions::ParameterMap& parameters) const
{
    parameters["ExpectedVersion"] = decimal(mExpectedVersion);
    parameters["FoundVersion"] = decimal(mFoundVersion);
}

TypeMismatchException::TypeMismatchException(const BasicString& message, const BasicString& foundType,
                                             const BasicString& expectedType)
    : SerializeException(message), mFoundType(exceptionText(foundType)), mExpectedType(exceptionText(expectedType))
{
}

BasicString TypeMismatchException::getName() const
{
    return "TypeMismatchException";
}

void TypeMismatchException::addParameters(Exceptions::ParameterMap& parameters) const
{
    parameters["ExpectedType"] = mExpectedType;
    parameters["FoundType"] = mFoundType;
}
} // namespace Serialize
} // namespace KORV::Common
