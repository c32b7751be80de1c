#pragma once

#include <map>
#include <memory_resource>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Basis/Allocator.h"

namespace Basis {

/// The containers that take the allocator of their owner. String keys order by bytes, a shorter key
/// before a longer one with the same beginning.
///
/// A plain copy of such a container falls back to the default resource: copies name their
/// allocator, as in `string(member, &allocator)`, and texts are joined with append, never with
/// operator+.
using string = std::pmr::string;
template <class T>
using vector = std::pmr::vector<T>;
template <class K, class V>
using map = std::pmr::map<K, V>;
template <class K, class V>
using multimap = std::pmr::multimap<K, V>;
template <class T>
using set = std::pmr::set<T>;

using TextAllocator = std::pmr::polymorphic_allocator<char>;
using ostringstream = std::basic_ostringstream<char, std::char_traits<char>, TextAllocator>;
using istringstream = std::basic_istringstream<char, std::char_traits<char>, TextAllocator>;

/// An output stream into a string of the given domain. An allocation that fails passes out of it: a
/// text is whole or not there.
inline ostringstream outputStream(Allocator& allocator)
{
    ostringstream stream(std::ios_base::out, TextAllocator(&allocator));
    stream.exceptions(std::ios_base::badbit);
    return stream;
}

}  // namespace Basis
