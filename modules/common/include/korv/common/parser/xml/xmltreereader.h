#pragma once

#include "korv/common/parser/xml/xmlnode.h"

namespace KORV::Common::Parser::XML
{
/// Helpers of loaders that walk a tree.
class KORV_COMMON_API XMLTreeReader
{
public:
    /// Takes the next child of that name as an element list; reports when it is missing.
    static bool readRequiredElement(XMLNodeElements*& out, XMLNodeElements& elements, const char* name);
    /// The same without a report.
    static bool readOptionalElement(XMLNodeElements*& out, XMLNodeElements& elements, const char* name);
    /// Report that an element lacks a child or an attribute; they name the path from the root.
    static void PrintTagNameError(const XMLNode& elements, const char* name);
    static void PrintAttribNameError(const XMLNode& elements, const char* name);
};
} // namespace KORV::Common::Parser::XML
