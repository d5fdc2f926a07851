#pragma once

#include "korv/common/container/nodecontainers.h"
#include "korv/common/parser/vrml2/nodes.h"

#include <cstring>

namespace KORV::Common::Parser::VRML2
{
/// Orders strings by their characters.
struct StringComp
{
    bool operator()(const char* a, const char* b) const { return std::strcmp(a, b) < 0; }
};

/// The fields of one node while its body is read. Names must outlive it (literals do), and so must the fields.
class KORV_COMMON_API MemberDescription
{
public:
    struct Member
    {
        void* mField;       ///< of the type that mType stands for
        uint32 mType;       ///< a FieldType
        bool mRead = false; ///< whether the body has given it a value
    };

    /// @param memory  for the table; must outlive the description.
    explicit MemberDescription(Memory::Allocator* memory) : mMembers(memory) {}

    void add(const char* name, bool& field) { addMember(name, SFBOOL, &field); }
    void add(const char* name, int32& field) { addMember(name, SFINT32, &field); }
    void add(const char* name, float& field) { addMember(name, SFFLOAT, &field); }
    void add(const char* name, Math::Vec3<float>& field) { addMember(name, SFVEC3F, &field); }
    void add(const char* name, Rotation& field) { addMember(name, SFROTATION, &field); }
    void add(const char* name, Quaternion& field) { addMember(name, SFFOURFLOATS, &field); }
    void add(const char* name, BasicString& field) { addMember(name, SFSTRING, &field); }
    void add(const char* name, SceneNodePtr& field) { addMember(name, SFSCENENODE, &field); }
    void add(const char* name, GeometryNodePtr& field) { addMember(name, SFGEOMETRYNODE, &field); }
    void add(const char* name, GeometricPropertyPtr& field) { addMember(name, SFGEOMETRICPROPERTY, &field); }
    void add(const char* name, MultiValue<int32>& field) { addMember(name, MFINT32, &field); }
    void add(const char* name, MultiValue<Math::Vec3<float>>& field) { addMember(name, MFVEC3F, &field); }
    void add(const char* name, MultiValue<BasicString>& field) { addMember(name, MFSTRING, &field); }
    void add(const char* name, MultiValue<SceneNodePtr>& field) { addMember(name, MFSCENENODE, &field); }
    void add(const char* name, MultiValue<GeometryNodePtr>& field) { addMember(name, MFGEOMETRYNODE, &field); }

    /// Adds a field by its type's number; @p field must be of the type that goes with it.
    void addMember(const char* name, uint32 type, void* field) { mMembers[name] = Member{field, type}; }

    /// @return the field of that name, or null when the node has none.
    Member* find(const char* name)
    {
        const auto place = mMembers.find(name);
        return place != mMembers.end() ? &place->second : nullptr;
    }

private:
    Container::Map<const char*, Member, StringComp> mMembers;
};
} // namespace KORV::Common::Parser::VRML2
