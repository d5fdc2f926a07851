#include "korv/common/serialize/serializestorage.h"

namespace KORV::Common::Serialize
{
SerializeStorage::Position::~Position() = default;

SerializeStorage::~SerializeStorage() = default;
} // namespace KORV::Common::Serialize
