#include "library.h"

#include "text.h"

#include "korv/common/callback/standardcallbacks.h"
#include "korv/common/debug/assert.h"
#include "korv/common/debug/logmanager.h"
#include "korv/common/debug/trace.h"
#include "korv/common/memory/memoryexception.h"
#include "korv/common/parser/parserexception.h"
#include "korv/navmesh/interface.h"

#include <iostream>
#include <mutex>

namespace KORV::Tool
{
namespace
{
// Reports and traces may come from several workers at once.
std::mutex gReportMutex;
Reports* gInnermost = nullptr;

class TracePrinter : public Common::Debug::TraceReceiver
{
public:
    void receive(uint32 type, const void* data, size_t size) override
    {
        if (type > Common::Debug::TRACE_MESSAGE)
            return;
        const std::lock_guard<std::mutex> guard(gReportMutex);
        std::cerr << std::string_view(static_cast<const char*>(data), size) << std::endl;
    }
};

TracePrinter gTracePrinter;
} // namespace

Library::Library(bool verbose)
{
    using namespace Common::Callback;
    guarded("cannot start: ", "",
            [&]
            {
                Common::Debug::Trace::setReceiver(verbose ? &gTracePrinter : nullptr);
                NavMesh::Interface::initLibrary(Common::SharedPtr<MemoryCallback>(new StandardMemoryCallback),
                                                Common::SharedPtr<FileIOCallback>(new StandardFileIOCallback));
                Common::Debug::LogManager::getInstance()->setLogMask(0);
            });
}

Library::~Library()
{
    NavMesh::Interface::closeLibrary();
    Common::Debug::Trace::setReceiver(nullptr);
}

Reports::Reports(std::string ignored) : mIgnored(std::move(ignored)), mOuter(gInnermost)
{
    gInnermost = this;
    Common::Debug::setAssertionHandler(&Reports::receive, this);
}

Reports::~Reports()
{
    for (const std::string& text : take())
        printWarning(text);
    gInnermost = mOuter;
    Common::Debug::setAssertionHandler(mOuter != nullptr ? &Reports::receive : nullptr, mOuter);
}

std::vector<std::string> Reports::take()
{
    const std::lock_guard<std::mutex> guard(gReportMutex);
    std::vector<std::string> texts;
    for (const Entry& entry : mEntries)
        texts.push_back(entry.mText + (entry.mCount > 1 ? " (" + grouped(entry.mCount) + " times)" : ""));
    mEntries.clear();
    return texts;
}

void Reports::receive(const char* text, const char* file, uint32 line, void* context)
{
    // "condition\nError Message: message": the condition helps us, the message helps everybody
    std::string report = text;
    const std::string mark = "\nError Message: ";
    const std::size_t at = report.find(mark);
    if (at != std::string::npos)
        report = report.substr(at + mark.size()) + (at > 0 ? " [" + report.substr(0, at) + "]" : "");
    Reports& reports = *static_cast<Reports*>(context);
    if (!reports.mIgnored.empty() && report.starts_with(reports.mIgnored))
        return;
    report += " (reported by " + std::string(file) + ":" + std::to_string(line) + ")";

    const std::lock_guard<std::mutex> guard(gReportMutex);
    std::vector<Entry>& entries = reports.mEntries;
    for (Entry& entry : entries)
    {
        if (entry.mText == report)
        {
            ++entry.mCount;
            return;
        }
    }
    constexpr std::size_t ENOUGH = 100; // texts that differ only by a number may come without end
    if (entries.size() < ENOUGH)
        entries.push_back({report});
    else
        ++entries.back().mCount;
}

Common::BasicString toLibrary(std::string_view text)
{
    return Common::BasicString(text.data(), text.size());
}

std::string toStd(const Common::BasicString& text)
{
    return std::string(text.data(), text.size());
}

std::string describe(const Common::Exceptions::Exception& error, const std::string& fileName, const std::string& what)
{
    std::string text = fileName;
    const auto* const parser = dynamic_cast<const Common::Parser::ParserException*>(&error);
    if (parser != nullptr)
        text += (text.empty() ? "line " : ":") + std::to_string(parser->getLine()) + ":" +
                std::to_string(parser->getRow() + 1);
    text += (text.empty() ? "" : ": ") + what + toStd(error.getMessage());
    if (const auto* argument = dynamic_cast<const Common::Exceptions::ArgumentException*>(&error))
        text += " (" + toStd(argument->getArgumentName()) + ")";
    if (dynamic_cast<const Common::Memory::OutOfMemoryException*>(&error) != nullptr)
        text += "; use a larger cube, or give the scene in parts.";
    const Common::Exceptions::Exception* const inner = error.getInnerException();
    return inner == nullptr ? text : text + "\n  because: " + describe(*inner);
}
} // namespace KORV::Tool
