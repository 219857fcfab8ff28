#include "base/temp_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "base/text.h"
#include "base/unique_fd.h"

namespace kt {

unique_file create_temp_file(char (&path)[kTempPathSize], const char* path_template) {
  copy_cut(path, sizeof path, path_template);
  unique_fd fd(::mkostemp(path, O_CLOEXEC));
  unique_file stream;
  if (fd.ok()) {
    fd.reset();
    stream = open_file(path, "we");
    if (!stream.ok()) (void)::unlink(path);
  }
  if (!stream.ok()) path[0] = '\0';
  return stream;
}

bool TempFile::create(const char* path_template) {
  remove();
  stream_ = create_temp_file(path_, path_template);
  return stream_.ok();
}

void TempFile::remove() {
  stream_.reset();
  if (path_[0] != '\0') (void)::unlink(path_);  // it may be gone already: wanted all the same
  path_[0] = '\0';
}

}  // namespace kt
