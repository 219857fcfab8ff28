/* export.h - how an exported name is declared. */
#ifndef KTCOMM_EXPORT_H
#define KTCOMM_EXPORT_H

#define KT_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define KT_BEGIN_DECLS extern "C" {
#define KT_END_DECLS }
#else
#define KT_BEGIN_DECLS
#define KT_END_DECLS
#endif

#endif
