/* util.h - the runtime utilities, all families. */
#ifndef KTCOMM_UTIL_H
#define KTCOMM_UTIL_H

#include <ktcomm/util_hash.h>
#include <ktcomm/util_loop.h>
#include <ktcomm/util_process.h>
#include <ktcomm/util_text.h>
#include <ktcomm/util_time.h>

#endif
