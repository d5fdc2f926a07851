#pragma once

#include <string>
#include <string_view>

namespace KORV::Tool
{
/// A file that appears whole or not at all. It is written under a temporary name in the same directory; commit puts it
/// in the place of the old one, and without commit the temporary one goes and the old one stays.
/// What is no regular file, such as /dev/null, is written to directly.
class AtomicFile
{
public:
    /// Creates the temporary file. Throws Failure (BadInput) when the place cannot be written to.
    explicit AtomicFile(const std::string& fileName);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    /// Where to write until commit.
    const std::string& getTemporaryName() const { return mTemporary; }
    /// Writes a text as the whole content. Throws Failure (BadInput).
    void write(std::string_view text);
    /// Makes what was written safe on the disk and gives it its name. Throws Failure (BadInput).
    void commit();

    /// Says early, before work is spent, that a file could not be written. Throws Failure (BadInput).
    static void check(const std::string& fileName);

private:
    std::string mFileName; ///< as the user gave it, for messages
    std::string mTarget;   ///< where links lead
    std::string mTemporary;
    bool mDirect = false;
    bool mCommitted = false;
};
} // namespace KORV::Tool
