#pragma once

#include "korv/common/exceptions/exception.h"

namespace KORV::Common::Parser
{
/// A text does not follow its grammar. Line counts from 1; row is the place in the line, counted from 0.
class KORV_COMMON_API ParserException : public Exceptions::Exception
{
public:
    ParserException(const BasicString& message, uint32 line, uint32 row);
    BasicString getName() const override;
    void addParameters(Exceptions::ParameterMap& parameters) const override;
    uint32 getLine() const { return mLine; }
    uint32 getRow() const { return mRow; }

private:
    uint32 mLine;
    uint32 mRow;
};

namespace XML
{
class KORV_COMMON_API XMLParserException : public ParserException
{
public:
    using ParserException::ParserException;
    BasicString getName() const override;
};
} // namespace XML

namespace VRML2
{
class KORV_COMMON_API VRML2ParserException : public ParserException
{
public:
    VRML2ParserException(uint32 line, uint32 row, const BasicString& fileName, const BasicString& message);
    BasicString getName() const override;
    const BasicString& getFileName() const { return mFileName; }

    /// What a person needs beside the message: the statement that was refused, and the rule where it is not plain.
    /// Empty when there is nothing to add.
    const BasicString& getExplanation() const { return mExplanation; }
    void setExplanation(const BasicString& explanation) { mExplanation.assign(explanation.data(), explanation.size()); }

private:
    BasicString mFileName;
    BasicString mExplanation{mFileName.get_allocator()};
};
} // namespace VRML2
} // namespace KORV::Common::Parser
