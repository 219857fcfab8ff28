#include "net/xml_path.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include "base/unique_malloc.h"

namespace kt {
namespace {

struct Component {
  const char* name = nullptr;
  int index = 0;
};

// As "%d" reads, 0 without a number; one that no int can hold is as far away as
// one can.
int read_index(const char* text) {
  if (text[0] >= '0' && text[0] <= '9' && text[1] == ']') return text[0] - '0';
  const long number = strtol(text, nullptr, 10);
  if (number > INT_MAX) return INT_MAX;
  return number < INT_MIN ? INT_MIN : static_cast<int>(number);
}

// The components of a path behind its first '/', one by one.
class Components {
 public:
  explicit Components(const char* path) : rest_(path + 1) {}
  Components(const Components&) = delete;
  Components& operator=(const Components&) = delete;

  // Becomes the next component that has a name; false when there is none. The name
  // stands until the next call; it is null when memory runs out.
  [[nodiscard]] bool next(Component& component) {
    while (*rest_ != '\0') {
      const char* const name = rest_;
      const char* const end = name + strcspn(name, "/[");
      rest_ = *end == '[' ? end + strcspn(end, "/") : end;
      if (*rest_ != '\0') ++rest_;
      if (end == name) continue;
      component.name = copy(name, static_cast<size_t>(end - name));
      component.index = *end == '[' ? read_index(end + 1) : 0;
      return true;
    }
    return false;
  }

 private:
  const char* copy(const char* name, size_t length) {
    char* room = short_name_;
    if (length >= sizeof short_name_) {
      long_name_ = allocate<char>(length + 1);
      room = long_name_.get();
      if (room == nullptr) return nullptr;
    }
    memcpy(room, name, length);
    room[length] = '\0';
    return room;
  }

  const char* rest_;
  unique_malloc<char[]> long_name_;
  char short_name_[64];
};

// Goes one component down, making its element where that is asked for and leaves
// no gap in front of it. Null when it cannot.
Node* step(Place& place, const Component& component, bool is_first, Missing missing) {
  if (component.name == nullptr) return nullptr;
  Node* const parent = place.node;
  Node* child = find_child(parent, component.name);
  if (child == nullptr && is_first && has_name(parent, component.name)) {
    return component.index == 0 ? parent : nullptr;
  }
  int left = component.index;
  for (; child != nullptr && left > 0; --left) child = find_next(parent, child, component.name);
  if (child != nullptr || left > 0 || missing == Missing::kFails) return child;
  child = add_element(parent, component.name);
  if (place.made == nullptr) place.made.reset(child);
  return child;
}

}  // namespace

Place walk(Node* tree, const char* path, Missing missing) {
  Components components(path);
  Place place = {kDone, tree, nullptr};
  Component component;
  for (bool is_first = true; components.next(component); is_first = false) {
    if (component.index < 0) return {kBadRequest, nullptr, nullptr};
    place.node = step(place, component, is_first, missing);
    if (place.node == nullptr) return {kNoNode, nullptr, nullptr};
  }
  return place;
}

}  // namespace kt
