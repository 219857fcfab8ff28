// md5.h - MD5 behind both of its exported interfaces.
#ifndef KTCOMM_UTIL_MD5_H
#define KTCOMM_UTIL_MD5_H

#include <ktcomm/util_hash.h>

namespace kt {

void md5_start(md5_ctx& ctx);
void md5_add(md5_ctx& ctx, const unsigned char* data, unsigned len);
void md5_end(md5_ctx& ctx);

}  // namespace kt

#endif
