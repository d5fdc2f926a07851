// Stands in for pugixml where it is not installed.

#include "otherxml.h"

namespace KORV::Benchmarks::Peer
{
bool hasOtherXml()
{
    return false;
}

bool parseOtherXml(const std::vector<std::uint8_t>&)
{
    return false;
}
} // namespace KORV::Benchmarks::Peer
