/* ktcomm.h - the whole interface of libktcomm. */
#ifndef KTCOMM_H
#define KTCOMM_H

#include <ktcomm/config.h>
#include <ktcomm/flash.h>
#include <ktcomm/log.h>
#include <ktcomm/net.h>
#include <ktcomm/sched.h>
#include <ktcomm/sdcard.h>
#include <ktcomm/settings.h>
#include <ktcomm/util.h>

#endif
