#include "otherxml.h"

#include "support/heap.h"

#include <pugixml.hpp>

namespace KORV::Benchmarks::Peer
{
bool hasOtherXml()
{
    return true;
}

bool parseOtherXml(const std::vector<std::uint8_t>& document)
{
    pugi::set_memory_management_functions(Heap::allocate, Heap::release);
    pugi::xml_document tree;
    return tree.load_buffer(document.data(), document.size()) && tree.document_element();
}
} // namespace KORV::Benchmarks::Peer
