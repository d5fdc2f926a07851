#pragma once

#include "korv/common/container/basicstring.h"
#include "korv/common/exceptions/exception.h"

#include "failure.h"

#include <string>
#include <string_view>
#include <vector>

namespace KORV::Tool
{
/// Keeps the library initialised, and its log lines off the standard output.
class Library
{
public:
    /// @param verbose  whether its trace messages go to standard error.
    explicit Library(bool verbose);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

/// Collects the library's assertion reports from here on; what nobody has taken at the end becomes warnings. The
/// innermost collection gets the reports, also those of worker threads.
class Reports
{
public:
    /// @param ignored  start of the message of a report that is none to the user; empty for no such report.
    explicit Reports(std::string ignored = "");
    ~Reports();
    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    /// The reports so far, each different text once with how often it came; the collection is empty afterwards.
    std::vector<std::string> take();

private:
    struct Entry
    {
        std::string mText;
        uint64 mCount = 1;
    };

    static void receive(const char* text, const char* file, uint32 line, void* context);

    std::vector<Entry> mEntries;
    std::string mIgnored;
    Reports* mOuter;
};

Common::BasicString toLibrary(std::string_view text);
std::string toStd(const Common::BasicString& text);

/// What the exception says after @p what, with the place in a file where it knows one, and the causes under it.
std::string describe(const Common::Exceptions::Exception& error, const std::string& fileName = "",
                     const std::string& what = "");

/// Does something with the library; an exception becomes a Failure (BadInput): file and place, @p what, the exception's
/// text, @p advice.
/// @param fileName  the file that is read or written, if any.
template <class Operation>
auto guarded(const std::string& what, const std::string& fileName, Operation&& operation,
             const std::string& advice = "")
{
    try
    {
        return operation();
    }
    catch (Common::Exceptions::Exception* error)
    {
        const std::string text = describe(*error, fileName, what) + advice;
        delete error;
        throw Failure(ExitCode::BadInput, text);
    }
}
} // namespace KORV::Tool
