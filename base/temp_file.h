// temp_file.h - a temporary copy that removes itself.
#ifndef KTCOMM_BASE_TEMP_FILE_H
#define KTCOMM_BASE_TEMP_FILE_H

#include <stddef.h>

#include "base/unique_file.h"

namespace kt {

// Room for a template such as "/tmp/tXXXXXX" and its NUL.
constexpr size_t kTempPathSize = 13;

// Makes a file by mkstemp from the template, puts its name into `path` and opens
// it by name for writing. Without success the stream is null, `path` empty and
// nothing is left behind.
[[nodiscard]] unique_file create_temp_file(char (&path)[kTempPathSize], const char* path_template);

// A file made by mkstemp from a template such as "/tmp/tXXXXXX" and open for
// writing as a stream. The file is deleted when the object dies.
class TempFile {
 public:
  TempFile() { path_[0] = '\0'; }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  ~TempFile() { remove(); }

  // False, with nothing left behind, when that fails.
  [[nodiscard]] bool create(const char* path_template);

  [[nodiscard]] FILE* stream() const { return stream_.get(); }
  [[nodiscard]] const char* path() const { return path_; }

  // Closes the stream and keeps the file; false when a write was lost.
  [[nodiscard]] bool close() { return stream_.ok() && stream_.close(); }

  // Closes the stream and deletes the file.
  void remove();

 private:
  unique_file stream_;
  char path_[kTempPathSize];
};

}  // namespace kt

#endif
