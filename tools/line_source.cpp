#include "tools/line_source.h"

#include <sys/types.h>

namespace kt::tools {

bool LineSource::next() {
  char* buffer = buffer_.release();
  const ssize_t length = ::getline(&buffer, &size_, stream_);
  buffer_.reset(buffer);
  if (length <= 0) return false;
  line_ = {buffer, static_cast<size_t>(length)};
  finished_ = line_.back() == '\n';
  if (finished_) line_.remove_suffix(1);
  ++number_;
  return true;
}

}  // namespace kt::tools
