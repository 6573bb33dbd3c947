#include "manager/api/calls.h"
#include "manager/api/handle_table.h"
#include "manager/base/process_local.h"
#include "manager/engine/bag.h"
#include "manager/engine/command.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace bxm {

namespace {

HandleTable<Bag>& bags() { return ProcessLocal<HandleTable<Bag>>::get(); }

/// The handles of nested bags that were asked for, by bag. A nested bag holds none itself.
class NestedHandles {
public:
  BXHBAG of(const std::shared_ptr<Bag>& bag) {
    const std::lock_guard guard(m_mutex);
    auto& handle = m_handles[bag.get()];
    if (handle == 0) {
      bag->isNested = true;
      handle = bags().add(bag);
    }
    return handle;
  }
  void forget(const Bag& outer) {
    for (const auto& nested : outer.nested()) {
      const std::lock_guard guard(m_mutex);
      const auto found = m_handles.find(nested.get());
      if (found == m_handles.end()) continue;
      bags().remove(found->second);
      m_handles.erase(found);
    }
  }

private:
  std::mutex m_mutex;
  std::map<const Bag*, BXHBAG> m_handles;
};

NestedHandles& nestedHandles() { return ProcessLocal<NestedHandles>::get(); }

template <typename Body>
Codes withBag(BXHBAG handle, Body body) {
  const auto bag = bags().find(handle);
  if (!bag) return failed(BXRC_HOBJ_ERROR);
  const std::lock_guard guard(bag->mutex);
  return body(*bag);
}

/// Runs body with the value of one item of a type, or gives the reason why there is none.
template <typename Type, typename Body>
Codes withItem(BXHBAG handle, BXLONG selector, BXLONG index, Body body) {
  return withBag(handle, [&](const Bag& bag) {
    if (bag.count(selector) == 0) return failed(BXRC_SELECTOR_ERROR);
    const Bag::Value* value = index < 0 ? nullptr : bag.find(selector, index);
    if (!value) return failed(BXRC_SELECTOR_COUNT_ERROR);
    const auto* typed = std::get_if<Type>(value);
    return typed ? body(*typed) : failed(BXRC_SELECTOR_TYPE_ERROR);
  });
}

Codes copyString(const std::string& text, BXLONG bufferLength, BXCHAR* buffer, BXLONG* stringLength,
                 BXLONG* characterSet) {
  if (bufferLength < 0) return failed(BXRC_BUFFER_LENGTH_ERROR);
  if (bufferLength > 0 && !buffer) return failed(BXRC_BUFFER_ERROR);
  const auto room = static_cast<std::size_t>(bufferLength);
  const std::size_t copied = std::min(room, text.size());
  if (room > 0) {
    std::memcpy(buffer, text.data(), copied);
    std::memset(buffer + copied, ' ', room - copied);
  }
  if (stringLength) *stringLength = static_cast<BXLONG>(text.size());
  if (characterSet) *characterSet = BXCS_UTF8;
  return text.size() > room ? warning(BXRC_CHAR_ATTRS_TOO_SHORT) : ok();
}

} // namespace

} // namespace bxm

using namespace bxm;

void bxCreateBag(BXLONG options, BXHBAG* bag, BXLONG* completion, BXLONG* reason) {
  if (bag) *bag = BXHB_UNUSABLE;
  guarded("bxCreateBag", completion, reason, [&] {
    if (!bag) return failed(BXRC_HOBJ_ERROR);
    if (options != BXCBO_ADMIN_BAG) return failed(BXRC_OPTIONS_ERROR);
    *bag = bags().add(std::make_shared<Bag>());
    return ok();
  });
}

void bxDeleteBag(BXHBAG* bag, BXLONG* completion, BXLONG* reason) {
  guarded("bxDeleteBag", completion, reason, [&] {
    const auto ended = bag ? bags().find(*bag) : nullptr;
    if (!ended || ended->isNested || !bags().remove(*bag)) return failed(BXRC_HOBJ_ERROR);
    *bag = BXHB_UNUSABLE;
    const std::lock_guard guard(ended->mutex);
    nestedHandles().forget(*ended);
    ended->clear(); // who has found it just before asks an empty bag
    return ok();
  });
}

void bxAddInteger(BXHBAG bag, BXLONG selector, BXLONG value, BXLONG* completion, BXLONG* reason) {
  guarded("bxAddInteger", completion, reason, [&] {
    return withBag(bag, [&](Bag& b) {
      b.add(selector, value);
      return ok();
    });
  });
}

void bxAddString(BXHBAG bag, BXLONG selector, BXLONG length, const BXCHAR* buffer,
                 BXLONG* completion, BXLONG* reason) {
  guarded("bxAddString", completion, reason, [&] {
    if (length < BX_NULL_TERMINATED) return failed(BXRC_BUFFER_LENGTH_ERROR);
    if (!buffer && length != 0) return failed(BXRC_BUFFER_ERROR);
    return withBag(bag, [&](Bag& b) {
      b.add(selector, length == BX_NULL_TERMINATED
                          ? std::string(buffer)
                          : std::string(buffer ? buffer : "", static_cast<std::size_t>(length)));
      return ok();
    });
  });
}

void bxAddInquiry(BXHBAG bag, BXLONG selector, BXLONG* completion, BXLONG* reason) {
  guarded("bxAddInquiry", completion, reason, [&] {
    return withBag(bag, [&](Bag& b) {
      b.add(selector, Bag::Inquiry{});
      return ok();
    });
  });
}

void bxCountItems(BXHBAG bag, BXLONG selector, BXLONG* count, BXLONG* completion, BXLONG* reason) {
  guarded("bxCountItems", completion, reason, [&] {
    if (!count) return failed(BXRC_BUFFER_ERROR);
    return withBag(bag, [&](const Bag& b) {
      *count = b.count(selector);
      return ok();
    });
  });
}

void bxInquireInteger(BXHBAG bag, BXLONG selector, BXLONG index, BXLONG* value, BXLONG* completion,
                      BXLONG* reason) {
  guarded("bxInquireInteger", completion, reason, [&] {
    if (!value) return failed(BXRC_BUFFER_ERROR);
    return withItem<BXLONG>(bag, selector, index, [&](BXLONG number) {
      *value = number;
      return ok();
    });
  });
}

void bxInquireString(BXHBAG bag, BXLONG selector, BXLONG index, BXLONG bufferLength, BXCHAR* buffer,
                     BXLONG* stringLength, BXLONG* characterSet, BXLONG* completion,
                     BXLONG* reason) {
  guarded("bxInquireString", completion, reason, [&] {
    return withItem<std::string>(bag, selector, index, [&](const std::string& text) {
      return copyString(text, bufferLength, buffer, stringLength, characterSet);
    });
  });
}

void bxInquireBag(BXHBAG bag, BXLONG selector, BXLONG index, BXHBAG* nested, BXLONG* completion,
                  BXLONG* reason) {
  guarded("bxInquireBag", completion, reason, [&] {
    if (!nested) return failed(BXRC_HOBJ_ERROR);
    return withItem<std::shared_ptr<Bag>>(bag, selector, index,
                                          [&](const std::shared_ptr<Bag>& inner) {
                                            *nested = nestedHandles().of(inner);
                                            return ok();
                                          });
  });
}

void bxExecute(BXHCONN connection, BXLONG command, BXHBAG optionsBag, BXHBAG commandBag,
               BXHBAG responseBag, BXHOBJ adminQueue, BXHOBJ responseQueue, BXLONG* completion,
               BXLONG* reason) {
  guarded("bxExecute", completion, reason, [&] {
    return withConnection(connection, [&](Connection& c) {
      if (optionsBag != BXHB_NONE || adminQueue != BXHO_NONE || responseQueue != BXHO_NONE)
        return failed(BXRC_OPTION_NOT_VALID_FOR_TYPE);
      const auto arguments = bags().find(commandBag), response = bags().find(responseBag);
      if (!arguments || !response || arguments == response || response->isNested)
        return failed(BXRC_HOBJ_ERROR);
      const std::scoped_lock guard(arguments->mutex, response->mutex);
      nestedHandles().forget(*response);
      return execute(c, command, *arguments, *response);
    });
  });
}

void bxTrim(BXLONG length, const BXCHAR* buffer, BXCHAR* string, BXLONG* completion,
            BXLONG* reason) {
  guarded("bxTrim", completion, reason, [&] {
    if (length < 0) return failed(BXRC_BUFFER_LENGTH_ERROR);
    if ((!buffer && length > 0) || !string) return failed(BXRC_BUFFER_ERROR);
    std::size_t end = buffer ? ::strnlen(buffer, static_cast<std::size_t>(length)) : 0;
    while (end > 0 && buffer[end - 1] == ' ') --end;
    if (end > 0) std::memmove(string, buffer, end);
    string[end] = '\0';
    return ok();
  });
}
