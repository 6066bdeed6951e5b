/*
 * kav/plugin_host.h - the boundary between the plugin host (the "core") and
 * a backend plugin, as plain C.
 *
 * Everything that crosses the boundary is declared here: the record the core
 * hands to the plugin's entry function, the host function table, the plugin's
 * callbacks, the value records, the request/response/event records and the
 * resource table with its packed API description.
 *
 * Layout. Every record is packed (no padding) and little-endian. The layouts
 * are defined for a 32-bit process, where every pointer and every "word" is
 * 4 bytes; in such a build the sizes and offsets below are checked at compile
 * time. A 64-bit build uses the same declarations: pointers are then 8 bytes
 * wide, so records that hold pointers grow and later offsets move. Both sides
 * of the boundary must of course be built for the same width.
 *
 * Ownership. Unless a record says otherwise, texts are zero-terminated byte
 * strings owned by the side that created the record, valid for the duration
 * of the call that passes them. Memory in owned value records (kinds 6, 8, 9
 * and 10) belongs to the record and is released by the side that created it
 * (for a response: through the response's release function).
 *
 * Thread-safety. The records are plain data; the host serialises its calls
 * into a plugin unless it documents otherwise.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef KAV_PLUGIN_HOST_H_
#define KAV_PLUGIN_HOST_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32) && !defined(_WIN64)
#define KAV_CALL __cdecl
#else
#define KAV_CALL
#endif

#if defined(_WIN32)
#define KAV_EXPORT __declspec(dllexport)
#else
#define KAV_EXPORT __attribute__((visibility("default")))
#endif

/* One byte, 0 or 1. The boundary never uses C's bool, whose size is not
 * fixed by every compiler that may sit on the other side. */
typedef uint8_t KavBool;

#pragma pack(push, 1)

/* ---- Values ------------------------------------------------------------ */

enum KavHostValueKind {
  KAV_VALUE_NULL = 0,
  KAV_VALUE_BOOL = 1,
  KAV_VALUE_SIGNED = 2,
  KAV_VALUE_UNSIGNED = 3,
  KAV_VALUE_FLOAT = 4,
  KAV_VALUE_STRING_BORROWED = 5, /* text + length; bytes not owned */
  KAV_VALUE_STRING_OWNED = 6,    /* as 5; the bytes belong to the record */
  KAV_VALUE_BLOB_BORROWED = 7,   /* bytes + count; not owned */
  KAV_VALUE_BLOB_OWNED = 8,      /* as 7; the bytes belong to the record */
  KAV_VALUE_ARRAY = 9,           /* KavHostValue[count]; owned */
  KAV_VALUE_MAP = 10             /* KavHostMapEntry[count]; owned */
};

struct KavHostMapEntry;

/* A value in the host's format: a kind and an 8-byte payload (12 bytes). */
typedef struct KavHostValue {
  uint32_t kind; /* enum KavHostValueKind */
  union {
    uint8_t boolean;  /* kind 1: 0 or 1 */
    int64_t i64;      /* kind 2 */
    uint64_t u64;     /* kind 3 */
    double f64;       /* kind 4 */
    struct {          /* kinds 5 to 10 */
      const void *data; /* text, bytes, KavHostValue[] or KavHostMapEntry[] */
      uint32_t size;    /* text length, byte count, element or entry count */
    } ref;
  } payload;
} KavHostValue;

/* One entry of a map value (17 bytes). */
typedef struct KavHostMapEntry {
  const char *key;
  KavHostValue value;
  uint8_t owns_key; /* 1 when the key text belongs to the entry */
} KavHostMapEntry;

/* ---- Requests and responses -------------------------------------------- */

enum KavHttpMethod {
  KAV_METHOD_ANY = 0,
  KAV_METHOD_DELETE = 1,
  KAV_METHOD_GET = 2,
  KAV_METHOD_HEAD = 3,
  KAV_METHOD_OPTIONS = 4,
  KAV_METHOD_PATCH = 5,
  KAV_METHOD_POST = 6,
  KAV_METHOD_PUT = 7,
  KAV_METHOD_CUSTOM = 8
};

/* One call argument (16 bytes); a null name makes it positional. */
typedef struct KavArgumentEntry {
  const char *name;
  KavHostValue value;
} KavArgumentEntry;

/* One request header (8 bytes). */
typedef struct KavHeaderEntry {
  const char *name;
  const char *value;
} KavHeaderEntry;

/* A request (48 bytes). The plugin fills one for its own outgoing requests
 * (user_data to custom_method then zero but for plugin_handle); the host fills
 * one for every call it delivers to the plugin's resources. */
typedef struct KavRequest {
  uint32_t method; /* enum KavHttpMethod */
  const char *url; /* path, optionally "?" and a query string */
  const KavArgumentEntry *arguments;
  uint32_t argument_count;
  void *user_data; /* incoming: the resource-table entry's user data */
  const KavHeaderEntry *headers;
  uint32_t header_count;
  const char *content_type; /* of the body */
  const uint8_t *body;      /* null when there is no body */
  uint32_t body_length;
  uint32_t context;          /* outgoing: the plugin handle; incoming: the
                                call context, passed through unchanged */
  const char *custom_method; /* method text when method is 8 */
} KavRequest;

struct KavResponse;

/* Reads the next piece of a streamed body. In: *size is the capacity of
 * buffer. Out: *size is the number of bytes delivered; *more is cleared once
 * the stream is exhausted. Returns 0 on a read error. */
typedef KavBool(KAV_CALL *KavStreamReadFn)(void *handle, uint8_t *buffer,
                                           uint32_t *size, uint8_t *more);
typedef void(KAV_CALL *KavStreamCloseFn)(void *handle);
/* Releases what a response owns; called once by the side that received it. */
typedef void(KAV_CALL *KavResponseReleaseFn)(struct KavResponse *response);

/* A name/value pair of a response (8 bytes). */
typedef struct KavTextPair {
  const char *name;
  const char *value;
} KavTextPair;

/* A response (62 bytes). Zero-filled by the receiver before the call. A null
 * error means success; the body is in `body` unless stream_read is set. */
typedef struct KavResponse {
  KavHostValue body;
  const char *error;
  uint8_t error_owned; /* 1 when error belongs to the response */
  uint8_t flags;
  uint32_t format; /* 0 to 3 */
  uint32_t status;
  const char *text; /* never null once written by the plugin */
  const KavTextPair *pairs;
  uint32_t pair_count;
  KavStreamReadFn stream_read;
  KavStreamCloseFn stream_close;
  uint32_t stream_length; /* expected length, a reservation hint */
  uint32_t reserved;
  void *stream_handle;
  KavResponseReleaseFn release;
} KavResponse;

/* ---- Events ------------------------------------------------------------ */

/* An event (24 bytes), published by the plugin or delivered to it. */
typedef struct KavEvent {
  const char *name;
  KavHostValue payload;
  uint32_t word;  /* given by the publisher; 0 for resource events */
  void *context;  /* on delivery: the context given to subscribe; else 0 */
} KavEvent;

typedef void(KAV_CALL *KavEventCallback)(const KavEvent *event);

/* ---- The host ---------------------------------------------------------- */

struct KavHostFunctionTable;
typedef const struct KavHostFunctionTable KavHostTable;

/* The host's functions (10 entries). Every entry takes the table itself as
 * its first argument. The plugin ignores every return value. */
typedef struct KavHostFunctionTable {
  /* 0: synchronous; on return the response is filled. */
  void(KAV_CALL *request)(KavHostTable *table, KavResponse *response,
                          const KavRequest *request);
  /* 1: reserved, never called. */
  void(KAV_CALL *reserved1)(KavHostTable *table, uintptr_t a, uintptr_t b);
  /* 2: publishes an event. */
  void(KAV_CALL *send_event)(KavHostTable *table, const KavEvent *event);
  /* 3: from now on callback(event) runs for each event of that name, with
   * event->context = context. flag: 1 for service-proxy events, else 0. */
  void(KAV_CALL *subscribe)(KavHostTable *table, const char *event_name,
                            uint32_t plugin_handle, KavEventCallback callback,
                            void *context, uint32_t flag);
  /* 4: no more deliveries of that name to this plugin. */
  void(KAV_CALL *unsubscribe)(KavHostTable *table, const char *event_name,
                              uint32_t plugin_handle);
  /* 5: reserved, never called. */
  void(KAV_CALL *reserved5)(KavHostTable *table, uintptr_t a, uintptr_t b,
                            uintptr_t c, uint64_t d, uintptr_t e);
  /* 6: runs pending host work once; callbacks into the plugin may run. */
  void(KAV_CALL *yield)(KavHostTable *table);
  /* 7, 8: bracket a blocking wait; label names what is awaited. */
  void(KAV_CALL *begin_wait)(KavHostTable *table, const char *label,
                             uintptr_t zero);
  void(KAV_CALL *end_wait)(KavHostTable *table);
  /* 9: one finished log line. level: 0 okay, 1 warn, 2 error, 3 always. */
  void(KAV_CALL *log)(KavHostTable *table, int32_t level, const char *text);
} KavHostFunctionTable;

/* Handed to the plugin's Initialize (8 bytes). */
typedef struct KavHostRecord {
  const KavHostFunctionTable *functions;
  uint32_t plugin_handle;
} KavHostRecord;

/* ---- The plugin -------------------------------------------------------- */

/* The plugin's callbacks (12 bytes); `module` is PluginRecord.module. */
typedef struct KavPluginCallbacks {
  /* Returns 1 when the plugin started. No host function is used before. */
  KavBool(KAV_CALL *initialize)(void *module, const KavHostRecord *host);
  /* Ends every subscription and frees the module. */
  void(KAV_CALL *destroy)(void *module);
  /* Writes 14 words: six 64-bit counters (low word first) - peak bytes in
   * use, live allocations at that peak, bytes allocated, allocations, bytes
   * freed, frees - then two zero words. */
  void(KAV_CALL *get_memory_statistics)(void *module, uint32_t out[14]);
} KavPluginCallbacks;

struct KavResourceTable;

/* The entry function's argument (28 bytes). On entry version[] holds the
 * core's plugin API version; the plugin overwrites it with its own and fills
 * the rest. When the core is incompatible the plugin ends the process. */
typedef struct KavPluginRecord {
  uint32_t version[3]; /* major, minor, patch */
  const KavPluginCallbacks *callbacks;
  void *module;
  const char *name;
  const struct KavResourceTable *resources;
} KavPluginRecord;

typedef void(KAV_CALL *KavPluginEntryFn)(KavPluginRecord *record);

/* ---- The packed API description ---------------------------------------- */

/* Type kind codes of kind fields below: 1 bool, 2 int8, 3 uint8, 4 int16,
 * 5 uint16, 6 int32, 7 uint32, 8 int64, 9 uint64, 10 float, 11 double,
 * 12 string, 13 object, 14 blob, 15 vector, 16 enum, 17 struct, 18 callback,
 * 19 map; 0 none. */

typedef struct KavApiParameter { /* 25 bytes */
  const struct KavApiParameter *next;
  const char *name;
  const char *description;
  uint32_t kind;
  uint32_t element_kind;
  const char *type_name;
  uint8_t optional;
} KavApiParameter;

typedef struct KavApiFunction { /* 61 bytes */
  const struct KavApiFunction *next;
  uint32_t zero[2];
  const char *name;
  const char *name_space;
  const KavApiParameter *parameters;
  uint32_t parameter_count;
  uint32_t result_kind;
  uint32_t result_element_kind;
  const char *result_type_name;
  const char *description;
  const char *help;
  uint8_t thread_safe;
  const char *async_type_name;
  const char *const *tags;
  uint32_t tag_count;
} KavApiFunction;

typedef struct KavApiField { /* 29 bytes */
  const struct KavApiField *next;
  const char *name;
  const char *description;
  uint32_t offset;
  uint32_t kind;
  uint32_t element_kind;
  const char *type_name;
  uint8_t optional;
} KavApiField;

typedef struct KavApiEnumerator { /* 16 bytes */
  const struct KavApiEnumerator *next;
  const char *name;
  const char *description;
  int32_t value;
} KavApiEnumerator;

typedef struct KavApiType { /* 40 bytes */
  const struct KavApiType *next;
  const char *name;
  const char *name_space;
  uint32_t size;
  const char *description;
  const char *const *tags;
  uint32_t tag_count;
  const KavApiField *fields;           /* null when the type has no fields */
  const KavApiEnumerator *enumerators; /* set only when there are no fields */
  uint32_t member_count; /* fields, or enumerators when there are no fields */
} KavApiType;

typedef struct KavApiEvent { /* 28 bytes */
  const struct KavApiEvent *next;
  const char *name;
  const char *name_space;
  const char *type_name;
  const char *description;
  const char *const *tags;
  uint32_t tag_count;
} KavApiEvent;

typedef struct KavApiDescription { /* 24 bytes */
  const KavApiFunction *functions;
  uint32_t function_count;
  const KavApiType *types;
  uint32_t type_count;
  const KavApiEvent *events;
  uint32_t event_count;
} KavApiDescription;

/* ---- The resource table ------------------------------------------------ */

/* Parameter location codes: 0 any, 1 query, 2 path, 4 header, 5 body. */
typedef struct KavParameterLocation { /* 8 bytes */
  uint32_t zero;
  uint32_t location;
} KavParameterLocation;

typedef struct KavTextList { /* 12 bytes */
  uint32_t zero;
  const char *const *texts;
  uint32_t count;
} KavTextList;

/* The host calls `call` for each request on the entry's resource. */
typedef void(KAV_CALL *KavCallFn)(KavResponse *response,
                                  const KavRequest *request);

/* One served function (90 bytes). Bytes 4 to 60 are the function's
 * KavApiFunction from its byte 4 on, with the user data in place of the
 * second zero word. */
typedef struct KavResourceEntry {
  const struct KavResourceEntry *next;
  uint32_t zero;
  void *user_data; /* handed back in KavRequest.user_data */
  const char *name;
  const char *name_space;
  const KavApiParameter *parameters;
  uint32_t parameter_count;
  uint32_t result_kind;
  uint32_t result_element_kind;
  const char *result_type_name;
  const char *description;
  const char *help;
  uint8_t thread_safe;
  const char *async_type_name;
  const char *const *tags;
  uint32_t tag_count;
  KavCallFn call;
  const KavParameterLocation *locations; /* one per parameter */
  const char *path_template;
  uint32_t method; /* 1 to 8; 0 any */
  uint8_t flags;
  const KavTextList *text_lists;
  uint32_t text_list_count;
  const char *custom_method;
} KavResourceEntry;

/* The plugin's resource table (24 bytes). */
typedef struct KavResourceTable {
  const KavResourceEntry *entries;
  uint32_t entry_count;
  const KavApiType *types;
  uint32_t type_count;
  const KavApiEvent *events;
  uint32_t event_count;
} KavResourceTable;

#pragma pack(pop)

/* ---- Layout checks for 32-bit builds ----------------------------------- */

#ifdef __cplusplus
#define KAV_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define KAV_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

#define KAV_CHECK_SIZE(type, size) \
  KAV_STATIC_ASSERT(sizeof(type) == (size), #type " size")
#define KAV_CHECK_OFFSET(type, field, off) \
  KAV_STATIC_ASSERT(offsetof(type, field) == (off), #type "." #field)

#if UINTPTR_MAX == 0xFFFFFFFFu
KAV_CHECK_SIZE(KavHostValue, 12);
KAV_CHECK_OFFSET(KavHostValue, payload, 4);
KAV_CHECK_OFFSET(KavHostValue, payload.ref.size, 8);
KAV_CHECK_SIZE(KavHostMapEntry, 17);
KAV_CHECK_OFFSET(KavHostMapEntry, value, 4);
KAV_CHECK_OFFSET(KavHostMapEntry, owns_key, 16);
KAV_CHECK_SIZE(KavArgumentEntry, 16);
KAV_CHECK_OFFSET(KavArgumentEntry, value, 4);
KAV_CHECK_SIZE(KavHeaderEntry, 8);

KAV_CHECK_SIZE(KavRequest, 48);
KAV_CHECK_OFFSET(KavRequest, url, 4);
KAV_CHECK_OFFSET(KavRequest, arguments, 8);
KAV_CHECK_OFFSET(KavRequest, argument_count, 12);
KAV_CHECK_OFFSET(KavRequest, user_data, 16);
KAV_CHECK_OFFSET(KavRequest, headers, 20);
KAV_CHECK_OFFSET(KavRequest, header_count, 24);
KAV_CHECK_OFFSET(KavRequest, content_type, 28);
KAV_CHECK_OFFSET(KavRequest, body, 32);
KAV_CHECK_OFFSET(KavRequest, body_length, 36);
KAV_CHECK_OFFSET(KavRequest, context, 40);
KAV_CHECK_OFFSET(KavRequest, custom_method, 44);

KAV_CHECK_SIZE(KavResponse, 62);
KAV_CHECK_OFFSET(KavResponse, error, 12);
KAV_CHECK_OFFSET(KavResponse, error_owned, 16);
KAV_CHECK_OFFSET(KavResponse, flags, 17);
KAV_CHECK_OFFSET(KavResponse, format, 18);
KAV_CHECK_OFFSET(KavResponse, status, 22);
KAV_CHECK_OFFSET(KavResponse, text, 26);
KAV_CHECK_OFFSET(KavResponse, pairs, 30);
KAV_CHECK_OFFSET(KavResponse, pair_count, 34);
KAV_CHECK_OFFSET(KavResponse, stream_read, 38);
KAV_CHECK_OFFSET(KavResponse, stream_close, 42);
KAV_CHECK_OFFSET(KavResponse, stream_length, 46);
KAV_CHECK_OFFSET(KavResponse, reserved, 50);
KAV_CHECK_OFFSET(KavResponse, stream_handle, 54);
KAV_CHECK_OFFSET(KavResponse, release, 58);
KAV_CHECK_SIZE(KavTextPair, 8);

KAV_CHECK_SIZE(KavEvent, 24);
KAV_CHECK_OFFSET(KavEvent, payload, 4);
KAV_CHECK_OFFSET(KavEvent, word, 16);
KAV_CHECK_OFFSET(KavEvent, context, 20);

KAV_CHECK_SIZE(KavHostFunctionTable, 40);
KAV_CHECK_OFFSET(KavHostFunctionTable, log, 36);
KAV_CHECK_SIZE(KavHostRecord, 8);
KAV_CHECK_OFFSET(KavHostRecord, plugin_handle, 4);
KAV_CHECK_SIZE(KavPluginCallbacks, 12);
KAV_CHECK_SIZE(KavPluginRecord, 28);
KAV_CHECK_OFFSET(KavPluginRecord, callbacks, 12);
KAV_CHECK_OFFSET(KavPluginRecord, module, 16);
KAV_CHECK_OFFSET(KavPluginRecord, name, 20);
KAV_CHECK_OFFSET(KavPluginRecord, resources, 24);

KAV_CHECK_SIZE(KavApiDescription, 24);
KAV_CHECK_SIZE(KavApiFunction, 61);
KAV_CHECK_OFFSET(KavApiFunction, name, 12);
KAV_CHECK_OFFSET(KavApiFunction, name_space, 16);
KAV_CHECK_OFFSET(KavApiFunction, parameters, 20);
KAV_CHECK_OFFSET(KavApiFunction, parameter_count, 24);
KAV_CHECK_OFFSET(KavApiFunction, result_kind, 28);
KAV_CHECK_OFFSET(KavApiFunction, result_element_kind, 32);
KAV_CHECK_OFFSET(KavApiFunction, result_type_name, 36);
KAV_CHECK_OFFSET(KavApiFunction, description, 40);
KAV_CHECK_OFFSET(KavApiFunction, help, 44);
KAV_CHECK_OFFSET(KavApiFunction, thread_safe, 48);
KAV_CHECK_OFFSET(KavApiFunction, async_type_name, 49);
KAV_CHECK_OFFSET(KavApiFunction, tags, 53);
KAV_CHECK_OFFSET(KavApiFunction, tag_count, 57);
KAV_CHECK_SIZE(KavApiParameter, 25);
KAV_CHECK_OFFSET(KavApiParameter, kind, 12);
KAV_CHECK_OFFSET(KavApiParameter, element_kind, 16);
KAV_CHECK_OFFSET(KavApiParameter, type_name, 20);
KAV_CHECK_OFFSET(KavApiParameter, optional, 24);
KAV_CHECK_SIZE(KavApiType, 40);
KAV_CHECK_OFFSET(KavApiType, size, 12);
KAV_CHECK_OFFSET(KavApiType, description, 16);
KAV_CHECK_OFFSET(KavApiType, tags, 20);
KAV_CHECK_OFFSET(KavApiType, tag_count, 24);
KAV_CHECK_OFFSET(KavApiType, fields, 28);
KAV_CHECK_OFFSET(KavApiType, enumerators, 32);
KAV_CHECK_OFFSET(KavApiType, member_count, 36);
KAV_CHECK_SIZE(KavApiField, 29);
KAV_CHECK_OFFSET(KavApiField, offset, 12);
KAV_CHECK_OFFSET(KavApiField, kind, 16);
KAV_CHECK_OFFSET(KavApiField, element_kind, 20);
KAV_CHECK_OFFSET(KavApiField, type_name, 24);
KAV_CHECK_OFFSET(KavApiField, optional, 28);
KAV_CHECK_SIZE(KavApiEnumerator, 16);
KAV_CHECK_OFFSET(KavApiEnumerator, value, 12);
KAV_CHECK_SIZE(KavApiEvent, 28);
KAV_CHECK_OFFSET(KavApiEvent, type_name, 12);
KAV_CHECK_OFFSET(KavApiEvent, description, 16);
KAV_CHECK_OFFSET(KavApiEvent, tags, 20);
KAV_CHECK_OFFSET(KavApiEvent, tag_count, 24);

KAV_CHECK_SIZE(KavParameterLocation, 8);
KAV_CHECK_SIZE(KavTextList, 12);
KAV_CHECK_SIZE(KavResourceEntry, 90);
KAV_CHECK_OFFSET(KavResourceEntry, user_data, 8);
KAV_CHECK_OFFSET(KavResourceEntry, name, 12);
KAV_CHECK_OFFSET(KavResourceEntry, thread_safe, 48);
KAV_CHECK_OFFSET(KavResourceEntry, tag_count, 57);
KAV_CHECK_OFFSET(KavResourceEntry, call, 61);
KAV_CHECK_OFFSET(KavResourceEntry, locations, 65);
KAV_CHECK_OFFSET(KavResourceEntry, path_template, 69);
KAV_CHECK_OFFSET(KavResourceEntry, method, 73);
KAV_CHECK_OFFSET(KavResourceEntry, flags, 77);
KAV_CHECK_OFFSET(KavResourceEntry, text_lists, 78);
KAV_CHECK_OFFSET(KavResourceEntry, text_list_count, 82);
KAV_CHECK_OFFSET(KavResourceEntry, custom_method, 86);
KAV_CHECK_SIZE(KavResourceTable, 24);
#endif

/* The plugin's one export. */
KAV_EXPORT void KAV_CALL load_kav_queue_eligibility(KavPluginRecord *record);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* KAV_PLUGIN_HOST_H_ */
