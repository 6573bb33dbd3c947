#pragma once

#include <cstddef>
#include <cstdint>

// The XML libraries work recursively and expand entities in memory. These bounds keep whatever they
// are given well inside a thread's stack and a process's memory.

/// Levels of elements in a document, the root being the first.
constexpr int kMaxXmlDepth = 1000;
/// Characters that a document's entities may expand to: the longest one's times all uses.
constexpr std::size_t kMaxXmlExpansion = 1024 * 1024;
/// Length of an XPath expression in characters (64 KiB).
constexpr std::int32_t kMaxXPathLength = 32 * 1024;
/// Brackets and parentheses of an XPath expression that stand open at once.
constexpr int kMaxXPathDepth = 1000;
/// Steps and operators of an XPath expression.
constexpr int kMaxXPathOperators = 4000;
/// Digits of a number that an XPath expression holds, and any number that it makes a value.
constexpr int kMaxXPathDigits = 60;
constexpr double kMaxXPathNumber = 1e60;
