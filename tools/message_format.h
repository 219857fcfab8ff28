// message_format.h - what a text of the event catalogue asks its caller for.
#ifndef KTCOMM_TOOLS_MESSAGE_FORMAT_H
#define KTCOMM_TOOLS_MESSAGE_FORMAT_H

namespace kt::tools {

// A printf format whose arguments can be handed over without knowing it at
// compile time: all of them texts, by plain %s, or all of them `int` or
// `unsigned`, by %d, %i, %u or %x.
struct MessageFormat {
  static constexpr int kMost = 8;

  int count = 0;
  char kinds[kMost] = {};  // the conversions, 's', 'd', 'i', 'u' or 'x'

  [[nodiscard]] bool of_texts() const { return count != 0 && kinds[0] == 's'; }
};

// Reads `text`. Returns null, or why nothing can be handed over to it.
[[nodiscard]] const char* read_format(const char* text, MessageFormat& format);

}  // namespace kt::tools

#endif
