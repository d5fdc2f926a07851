#pragma once

#include "korv/common/api.h"
#include "korv/common/debug/messagetext.h"
#include "korv/common/types.h"

namespace KORV::Common::Debug
{
/// Receives every assertion report: the text, the module-relative source file and the line.
/// Called on the thread that made the report, workers included; execution goes on when it returns.
using AssertionHandler = void (*)(const char* text, const char* file, uint32 line, void* context);

/// Installs the receiver of assertion reports; null restores the default, which prints to standard error.
/// Call it while no other thread uses the library.
KORV_COMMON_API void setAssertionHandler(AssertionHandler handler, void* context = nullptr);

/// Reports a failed check: condition, "\nError Message: " and the message.
/// @return false, so that a check can be used as a condition.
KORV_COMMON_API bool reportAssertion(const char* condition, const MessageText& message, const char* file, uint32 line);

/// Reports a failed check whose text is the condition alone.
KORV_COMMON_API bool reportBareAssertion(const char* condition, const char* file, uint32 line);

/// Reports a failed check of the foundation: first a trace error with the function's name, then the assertion report.
/// An empty condition stands for a check without one.
KORV_COMMON_API bool reportFoundationAssertion(const char* function, const char* condition, const MessageText& message,
                                               const char* file, uint32 line);
} // namespace KORV::Common::Debug

// The checks below are expressions: true when the condition holds, else they report and are false; that is spelled out
// so that compilers, too, know what holds behind a check. Condition text and function name are literals, because
// compilers print names and stringify macros in ways of their own.

/// Check of the navigation-mesh module. @p message may stream values: "id is " << id.
#define KORV_ASSERT(condition, conditionText, message)                                                                 \
    ((condition) || (::KORV::Common::Debug::reportAssertion(                                                           \
                         conditionText, ::KORV::Common::Debug::MessageText() << message, __FILE__, __LINE__),          \
                     false))

/// Unconditional report of the navigation-mesh module.
#define KORV_FAIL(message) KORV_ASSERT(false, "", message)

/// Check whose report is the condition text alone.
#define KORV_BARE_ASSERT(condition, conditionText)                                                                     \
    ((condition) || (::KORV::Common::Debug::reportBareAssertion(conditionText, __FILE__, __LINE__), false))

/// Check of the foundation module. @p function is the qualified name that the trace error starts with.
#define KORV_COMMON_ASSERT(function, condition, conditionText, message)                                                \
    ((condition) ||                                                                                                    \
     (::KORV::Common::Debug::reportFoundationAssertion(                                                                \
          function, conditionText, ::KORV::Common::Debug::MessageText() << message, __FILE__, __LINE__),               \
      false))

/// Report of a failed check of the foundation module, where the condition has been looked at elsewhere.
#define KORV_COMMON_FAIL_CONDITION(function, conditionText, message)                                                   \
    ::KORV::Common::Debug::reportFoundationAssertion(                                                                  \
        function, conditionText, ::KORV::Common::Debug::MessageText() << message, __FILE__, __LINE__)

/// Unconditional report of the foundation module.
#define KORV_COMMON_FAIL(function, message) KORV_COMMON_ASSERT(function, false, "", message)
