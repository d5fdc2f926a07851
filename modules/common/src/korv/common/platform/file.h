#pragma once

#include "korv/common/types.h"

namespace KORV::Common::Platform
{
// The operating system's files. Paths end in a zero byte. Sharing a file with other openers is not controlled here.

enum class FileError
{
    NONE,
    ACCESS_DENIED, ///< also a directory where a file is asked for
    EXISTS,
    NOT_FOUND,
    NOT_EMPTY,
    TOO_MANY_OPEN,
    NO_SPACE,
    BAD_FLAGS,
    OTHER
};

constexpr int INVALID_DESCRIPTOR = -1;

/// Opens a file in binary.
/// @param access  1: read, 2: read and write, 3: write.
/// @param mode  1: existing, 2: append, 3: create or truncate, 4: create new, 5: open or create.
/// @return the descriptor, or INVALID_DESCRIPTOR and @p error.
int openFile(const char* path, uint32 access, uint32 mode, FileError& error);
void closeFile(int descriptor);
/// @return the size of the file. [bytes]
uint64 getFileLength(int descriptor);
/// @return the bytes read, fewer than @p count only at the end of the file; -1 when nothing could be read.
int64 readFile(int descriptor, void* buffer, uint64 count);
/// @return the bytes written; fewer than @p count with @p error set.
uint64 writeFile(int descriptor, const void* buffer, uint64 count, FileError& error);
/// @param origin  1: from the current position, 2: from the end, 3: from the start.
/// @return the new position, or a negative value.
int64 seekFile(int descriptor, int64 offset, uint32 origin);
/// Commits what was written to the disk.
bool flushFile(int descriptor);

/// @return whether the path denotes a file, not a directory, that can be opened for reading.
bool isReadableFile(const char* path);
int deleteFile(const char* path);
/// Creates an empty file of a name of its own.
/// @param name  receives the path, at most 18 characters with the terminating zero.
bool createTemporaryFile(char (&name)[18]);

bool isPathSeparator(char character);
bool setCurrentDirectory(const char* path);
/// @return false when the name does not fit the buffer or there is none.
bool getCurrentDirectory(char* buffer, size_t size);
FileError createDirectory(const char* path);
FileError deleteDirectory(const char* path);
} // namespace KORV::Common::Platform
