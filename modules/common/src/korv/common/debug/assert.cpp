#include "korv/common/debug/assert.h"

#include "korv/common/debug/trace.h"
#include "korv/common/platform/console.h"

namespace KORV::Common::Debug
{
namespace
{
void printAssertion(const char* text, const char* file, uint32 line, void*)
{
    MessageText report;
    report << file << ':' << line << ": " << text << '\n';
    Platform::writeStandardError(report.view());
}

AssertionHandler gHandler = &printAssertion;
void* gContext = nullptr;
} // namespace

void setAssertionHandler(AssertionHandler handler, void* context)
{
    gHandler = handler != nullptr ? handler : &printAssertion;
    gContext = context;
}

bool reportAssertion(const char* condition, const MessageText& message, const char* file, uint32 line)
{
    MessageText text;
    text << condition << "\nError Message: " << message;
    gHandler(text.c_str(), file, line, gContext);
    return false;
}

bool reportBareAssertion(const char* condition, const char* file, uint32 line)
{
    gHandler(condition, file, line, gContext);
    return false;
}

bool reportFoundationAssertion(const char* function, const char* condition, const MessageText& message,
                               const char* file, uint32 line)
{
    MessageText trace;
    trace << function << " : ";
    if (*condition != '\0')
        trace << condition << " :  " << message;
    else
        trace << "Error: " << message;
    Trace::error(trace);
    return reportAssertion(condition, message, file, line);
}
} // namespace KORV::Common::Debug
