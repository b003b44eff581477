/*
 * libvorl - the export macro and the names of the library's records, shared
 * by vorl.h, vorl_engine.h and vorl_table.h so that each can refer to the
 * others' records without a second typedef.
 */
#ifndef VORL_TYPES_H
#define VORL_TYPES_H

#include <stdint.h>

/* VORL_BUILD is defined only while the library itself is compiled; users
 * see plain declarations. */
#if defined(VORL_BUILD)
#if defined(_WIN32)
#define VORL_API __declspec(dllexport)
#else
#define VORL_API __attribute__((visibility("default")))
#endif
#else
#define VORL_API
#endif

typedef struct st_vorl st_vorl;           /* main parameter block       */
typedef struct st_vorlc st_vorlc;         /* control parameter block    */
typedef struct st_vorl_tbl st_vorl_tbl;   /* tuning-table file and image */
typedef struct st_vorl_hdr st_vorl_hdr;   /* block settings record      */
typedef struct st_vorl_inst st_vorl_inst; /* engine instance record     */
typedef struct st_vorl_ws st_vorl_ws;     /* engine workspace           */
typedef struct CPulseFilter CPulseFilter; /* pulse-filter state         */

#endif /* VORL_TYPES_H */
