#pragma once

#include "bx/bx.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace bxm {

/// An administration bag: an ordered list of items. Its mutex is for who shares it between threads;
/// the methods do not take it.
class Bag {
public:
  /// An item that asks for an attribute.
  struct Inquiry {};
  using Value = std::variant<BXLONG, std::string, Inquiry, std::shared_ptr<Bag>>;

  void add(BXLONG selector, Value value) { m_items.push_back({selector, std::move(value)}); }
  void clear() { m_items.clear(); }

  BXLONG count(BXLONG selector) const;
  /// The item of that selector and index; null when there is none.
  const Value* find(BXLONG selector, BXLONG index = 0) const;
  /// The selectors of all inquiries.
  std::vector<BXLONG> inquiries() const;
  /// All selectors, inquiries aside.
  std::vector<BXLONG> selectors() const;
  std::vector<std::shared_ptr<Bag>> nested() const;

  std::mutex mutex;
  bool isNested = false; ///< it belongs to another bag

private:
  struct Item {
    BXLONG selector;
    Value value;
  };
  std::vector<Item> m_items;
};

} // namespace bxm
