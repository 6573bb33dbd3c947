#include "manager/engine/bag.h"

namespace bxm {

BXLONG Bag::count(BXLONG selector) const {
  BXLONG count = 0;
  for (const Item& item : m_items) count += item.selector == selector;
  return count;
}

const Bag::Value* Bag::find(BXLONG selector, BXLONG index) const {
  for (const Item& item : m_items)
    if (item.selector == selector && index-- == 0) return &item.value;
  return nullptr;
}

std::vector<BXLONG> Bag::inquiries() const {
  std::vector<BXLONG> selectors;
  for (const Item& item : m_items)
    if (std::holds_alternative<Inquiry>(item.value)) selectors.push_back(item.selector);
  return selectors;
}

std::vector<BXLONG> Bag::selectors() const {
  std::vector<BXLONG> selectors;
  for (const Item& item : m_items)
    if (!std::holds_alternative<Inquiry>(item.value)) selectors.push_back(item.selector);
  return selectors;
}

std::vector<std::shared_ptr<Bag>> Bag::nested() const {
  std::vector<std::shared_ptr<Bag>> bags;
  for (const Item& item : m_items)
    if (const auto* bag = std::get_if<std::shared_ptr<Bag>>(&item.value)) bags.push_back(*bag);
  return bags;
}

} // namespace bxm
