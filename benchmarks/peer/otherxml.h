#pragma once

#include <cstdint>
#include <vector>

/// Another XML parser, pugixml, as installed (package libpugixml-dev).
namespace KORV::Benchmarks::Peer
{
/// Whether there was one when the benchmarks were built; without it nothing below does anything.
bool hasOtherXml();

/// Parses a document into a tree, on the counting heap. The document is copied, as ours is.
/// @return whether there was a root.
bool parseOtherXml(const std::vector<std::uint8_t>& document);
} // namespace KORV::Benchmarks::Peer
