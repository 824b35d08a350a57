#include "trovi/TypeInfo.h"

namespace trovi::traits {

std::string TypeInfo::operator()() const
{
    return "trovi::traits::TypeInfo {name = " + std::string(name) + ", meta = " + std::to_string(meta) + "}";
}

bool operator==(const TypeInfo& left, const TypeInfo& right)
{
    return left.type != nullptr && right.type != nullptr && *left.type == *right.type && left.meta == right.meta &&
           left.name == right.name;
}

} // namespace trovi::traits
