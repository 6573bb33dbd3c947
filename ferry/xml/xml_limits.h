#pragma once

#include <cstddef>
#include <cstdint>

// The XML libraries work recursively and expand entities in memory. These bounds keep whatever they
// are given well inside a thread's stack and a process's memory.

/// Levels of elements in a document, the root being the first.
constexpr int kMaxXmlDepth = 1000;
/// Characters that a document's entities may expand to: the longest one's times all uses.
constexpr std::size_t kMaxXmlExpansion = 1024 * 1024;
