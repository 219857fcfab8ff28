// unique_dir.h - a directory stream that closes itself.
#ifndef KTCOMM_BASE_UNIQUE_DIR_H
#define KTCOMM_BASE_UNIQUE_DIR_H

#include <dirent.h>
#include <errno.h>

namespace kt {

class unique_dir {
 public:
  // opendir(3), which sets close-on-exec by itself.
  explicit unique_dir(const char* path) : directory_(::opendir(path)) {}
  unique_dir(const unique_dir&) = delete;
  unique_dir& operator=(const unique_dir&) = delete;
  ~unique_dir() {
    const int saved = errno;
    if (directory_ != nullptr) (void)::closedir(directory_);
    errno = saved;
  }

  [[nodiscard]] bool ok() const { return directory_ != nullptr; }

  // The next name, valid until the next call; null at the end, and when there is
  // no such directory.
  [[nodiscard]] const char* next() {
    const dirent* const entry = directory_ != nullptr ? ::readdir(directory_) : nullptr;
    return entry != nullptr ? entry->d_name : nullptr;
  }

 private:
  DIR* directory_;
};

}  // namespace kt

#endif
