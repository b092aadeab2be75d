/*
 * The published interface of the token engine's facade library (VestaAccessLibrary.dll), shared by
 * the provider's layers and the virtual token engine. docs/facade-interface.md is the full contract
 * for a vendor who implements an engine: threading, ownership, token events and result codes.
 *
 * The library exports one function, VALInitialize. The caller fills an initialisation block with
 * its callbacks; the library writes its function table into the block. Every token operation is a
 * task: a function of the table starts it and hands back a task id at once; when the task has
 * finished, the library calls resultAvailable with that id on a thread of its own, and the caller
 * fetches the result, a packed item tree, with getTaskResult and then releases it with
 * releaseTaskResult.
 *
 * Tokens are named by their identification bytes, as the library delivered them (token list,
 * token-added event). Texts (PINs, labels) are UTF-8 with a terminating zero.
 *
 * Plain C: a vendor's library may be written in C or any language with a C interface.
 */
#ifndef LM2_FACADE_INTERFACE_H
#define LM2_FACADE_INTERFACE_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define VAL_CALL __stdcall
#else
#define VAL_CALL
#endif

#ifdef __cplusplus
extern "C" {
#define VAL_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define VAL_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

typedef uint64_t VAL_RESULT;  /* a 64-bit result code (docs/facade-interface.md lists them) */
typedef uint64_t VAL_TASK_ID; /* non-zero */
typedef uint64_t VAL_OBJECT;  /* handle of an object on a token, valid while the token is present */

enum {
  kValMagic = 0x075C0001, /* written into the block by the caller */
  kValBlockCount = 3      /* passed in the block and as second argument of VALInitialize */
};

/* Task function identifiers: the "tfi" of every result. */
typedef enum ValTaskFunction {
  kValTaskGetTokenList = 1,
  kValTaskGetTokenCapabilities = 2,
  kValTaskCheckPin = 3,
  kValTaskAskPin = 4,
  kValTaskFindObjects = 5,
  kValTaskGetObjectInfo = 6,
  kValTaskReadObject = 7,
  kValTaskWriteObject = 8,
  kValTaskCreateObject = 9,
  kValTaskDeleteObject = 10,
  kValTaskInitializeToken = 11,
  kValTaskChangePin = 12
} ValTaskFunction;

typedef void(VAL_CALL* ValResultAvailable)(void* context, VAL_TASK_ID task);
/* The token's bytes are valid during the call only. */
typedef void(VAL_CALL* ValTokenEvent)(void* context, const uint8_t* token, uint32_t tokenLength);

/* Every start function copies what it is given before it returns; it returns a success code and a
 * task id, or a failure code and no task. */
typedef struct ValFunctionTable {
  /* sizeof(ValFunctionTable) of the library's version of this header: the table's version. The
   * provider refuses a table smaller than its own, or one with a null entry. Later versions only
   * append entries. */
  uint32_t size;

  VAL_RESULT(VAL_CALL* getTokenList)(VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* getTokenCapabilities)(const uint8_t* token, uint32_t tokenLength, VAL_TASK_ID* task);
  /* Opens the token's private objects for reading when the PIN is right. */
  VAL_RESULT(VAL_CALL* checkPin)(const uint8_t* token, uint32_t tokenLength, const char* pin, VAL_TASK_ID* task);
  /* The PIN is entered on the token's own PIN pad; opens the private objects like checkPin. */
  VAL_RESULT(VAL_CALL* askPin)(const uint8_t* token, uint32_t tokenLength, VAL_TASK_ID* task);
  /* `query` is a packed item tree "q" { "kind" ULong (optional), "lbl" StringA (optional),
   * "lnk" StringA (optional) }: objects matching every given field. */
  VAL_RESULT(VAL_CALL* findObjects)(const uint8_t* token, uint32_t tokenLength, const uint8_t* query,
                                    uint32_t queryLength, VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* getObjectInfo)(const uint8_t* token, uint32_t tokenLength, VAL_OBJECT object,
                                      VAL_TASK_ID* task);
  /* A private object (kind 2) is read only after checkPin or askPin succeeded on that token. */
  VAL_RESULT(VAL_CALL* readObject)(const uint8_t* token, uint32_t tokenLength, VAL_OBJECT object,
                                   VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* writeObject)(const uint8_t* token, uint32_t tokenLength, VAL_OBJECT object,
                                    const uint8_t* data, uint32_t dataLength, VAL_TASK_ID* task);
  /* `descriptor` is a packed item tree "d" { "kind" ULong, "lbl" StringA, "lnk" StringA,
   * "flags" ULong, "v1" ULong, "v2" ULong }. */
  VAL_RESULT(VAL_CALL* createObject)(const uint8_t* token, uint32_t tokenLength, const uint8_t* descriptor,
                                     uint32_t descriptorLength, VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* deleteObject)(const uint8_t* token, uint32_t tokenLength, VAL_OBJECT object,
                                     VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* initializeToken)(const uint8_t* token, uint32_t tokenLength, const char* label,
                                        const char* pin, uint8_t withoutPin, VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* changePin)(const uint8_t* token, uint32_t tokenLength, const char* oldPin,
                                  const char* newPin, VAL_TASK_ID* task);

  /* The finished task's result stream; the library keeps it valid until releaseTaskResult. */
  VAL_RESULT(VAL_CALL* getTaskResult)(VAL_TASK_ID task, const uint8_t** stream, uint32_t* streamLength);
  /* The library wipes and frees the stream. */
  void(VAL_CALL* releaseTaskResult)(VAL_TASK_ID task);
  /* Ends the library's work: no callback is made after it returns. Never called from a callback. */
  void(VAL_CALL* unload)(void);
} ValFunctionTable;

typedef struct ValInitBlock {
  void* callbackContext;            /* handed back to every callback */
  ValResultAvailable resultAvailable; /* a task has finished */
  ValTokenEvent tokenAdded;         /* a token was connected */
  ValTokenEvent tokenRemoved;       /* a token was removed */
  uint8_t reportTokenEvents;        /* 1: call tokenAdded/tokenRemoved */
  uint8_t reportResults;            /* 1: call resultAvailable */
  uint32_t reserved;                /* 0 */
  uint32_t magic;                   /* kValMagic */
  uint32_t count;                   /* kValBlockCount */
  const ValFunctionTable* functions; /* written by the library; valid until the library is freed */
} ValInitBlock;

typedef VAL_RESULT(VAL_CALL* ValInitializeFunction)(ValInitBlock* block, uint32_t count);

/* The layout is the interface: the same on every compiler, checked here. */
#define VAL_POINTER_SIZE sizeof(void*)
VAL_STATIC_ASSERT(offsetof(ValFunctionTable, getTokenList) == VAL_POINTER_SIZE, "table: size, then entries");
VAL_STATIC_ASSERT(sizeof(ValFunctionTable) == 16 * VAL_POINTER_SIZE, "table: size and 15 entries");
VAL_STATIC_ASSERT(offsetof(ValFunctionTable, unload) == 15 * VAL_POINTER_SIZE, "unload is the last entry");
VAL_STATIC_ASSERT(offsetof(ValInitBlock, reportTokenEvents) == 4 * VAL_POINTER_SIZE, "block: four pointers first");
VAL_STATIC_ASSERT(offsetof(ValInitBlock, reportResults) == 4 * VAL_POINTER_SIZE + 1, "block: two switches");
VAL_STATIC_ASSERT(offsetof(ValInitBlock, reserved) == 4 * VAL_POINTER_SIZE + 4, "block: reserved");
VAL_STATIC_ASSERT(offsetof(ValInitBlock, magic) == 4 * VAL_POINTER_SIZE + 8, "block: magic");
VAL_STATIC_ASSERT(offsetof(ValInitBlock, count) == 4 * VAL_POINTER_SIZE + 12, "block: count");
VAL_STATIC_ASSERT(offsetof(ValInitBlock, functions) == 4 * VAL_POINTER_SIZE + 16, "block: table last");
VAL_STATIC_ASSERT(sizeof(ValInitBlock) == 5 * VAL_POINTER_SIZE + 16, "block: no tail padding but alignment");

/* The entries of the table by name, in order: X(name) for each. */
#define VAL_FUNCTION_TABLE_ENTRIES(X)                                                                   \
  X(getTokenList) X(getTokenCapabilities) X(checkPin) X(askPin) X(findObjects) X(getObjectInfo)          \
  X(readObject) X(writeObject) X(createObject) X(deleteObject) X(initializeToken) X(changePin)           \
  X(getTaskResult) X(releaseTaskResult) X(unload)

/* Names of the result items. Every result: root "res" { "ti" ULongLong task id, "tfi" ULong task
 * function, "te" ULongLong result code, "resp" Vector response }. */
#define VAL_ITEM_RESULT_ROOT "res"
#define VAL_ITEM_TASK_ID "ti"
#define VAL_ITEM_TASK_FUNCTION "tfi"
#define VAL_ITEM_RESULT_CODE "te"
#define VAL_ITEM_RESPONSE "resp"

#define VAL_ITEM_TOKEN_LIST "tl"          /* in resp: vector of buffers, one per token */
#define TOKENCAPABILITY_ROOT "tc"         /* in resp: vector of the capability flags and label */
#define CITEM_NAME_OBJECT_LIST "ol"       /* in resp: vector of ULongLong "oh" */
#define CITEM_NAME_OBJECT_INFO "oi"       /* in resp: vector, the four fields below */
#define CITEM_NAME_OBJECT_DATA "od"       /* in resp: buffer */
#define CITEM_NAME_OBJECT "oh"            /* in resp: ULongLong handle */
#define VAL_ITEM_INFO_APPLICATION "app"   /* StringA: the link text of a credential object */
#define VAL_ITEM_INFO_LABEL "lbl"         /* StringA */
#define VAL_ITEM_INFO_ATTRIBUTES "att"    /* ULong: object kind (1 public, 2 private) */
#define VAL_ITEM_INFO_SIZE "sz"           /* ULong: content size in bytes */

#define VAL_ITEM_QUERY_KIND "kind"
#define VAL_ITEM_QUERY_LABEL "lbl"
#define VAL_ITEM_QUERY_LINK "lnk"

/* Result codes of the engine, in "te" or returned by a start function (success is
 * 0x2000000020100000; docs/facade-interface.md lists every code). */
#define VAL_SUCCESS 0x2000000020100000ull
#define VAL_E_WRONG_PIN 0xC0100000C0100001ull
#define VAL_E_PIN_LOCKED 0xC0100000C0100002ull
#define VAL_E_TOKEN_NOT_PRESENT 0xC0100000C0100003ull
#define VAL_E_OBJECT_NOT_FOUND 0xC0100000C0100004ull
#define VAL_E_PIN_PAD_CANCELLED 0xC0100000C0100005ull
#define VAL_E_NOT_SUPPORTED 0xC0100000C0100006ull
#define VAL_E_NOT_AUTHENTICATED 0xC0100000C0100007ull
#define VAL_E_BAD_CALL 0xC0100000C0100010ull
#define VAL_E_NO_SUCH_TASK 0xC0100000C0100011ull

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* LM2_FACADE_INTERFACE_H */
