#pragma once
// The published interface of the token engine's facade library (VestaAccessLibrary.dll), shared by
// the provider's layers and the virtual token engine. docs/facade-interface.md describes it for
// implementers of an engine.
//
// The library exports one function, VALInitialize. The caller fills an initialisation block with
// its callbacks; the library writes its function table into the block. Every token operation is a
// task: a function of the table starts it and hands back a task id at once; when the task has
// finished, the library calls resultAvailable with that id on a thread of its own, and the caller
// fetches the result, a packed item tree, with getTaskResult and then releases it with
// releaseTaskResult.
//
// Tokens are named by their identification bytes, as the library delivered them (token list,
// token-added event). Texts (PINs, labels) are UTF-8 with a terminating zero.

#include <cstdint>

#if defined(_WIN32)
#define VAL_CALL __stdcall
#else
#define VAL_CALL
#endif

extern "C" {

typedef std::uint64_t VAL_RESULT;   // the 64-bit result code of the provider (see docs)
typedef std::uint64_t VAL_TASK_ID;  // non-zero
typedef std::uint64_t VAL_OBJECT;   // handle of an object on a token, valid while the token is present

enum : std::uint32_t {
  kValMagic = 0x075C0001,  // written into the block by the caller
  kValBlockCount = 3,      // passed in the block and as second argument of VALInitialize
};

// Task function identifiers: the "tfi" of every result.
enum ValTaskFunction : std::uint32_t {
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
  kValTaskChangePin = 12,
};

typedef void(VAL_CALL* ValResultAvailable)(void* context, VAL_TASK_ID task);
typedef void(VAL_CALL* ValTokenEvent)(void* context, const std::uint8_t* token, std::uint32_t tokenLength);

struct ValFunctionTable {
  std::uint32_t size;  // sizeof(ValFunctionTable) of the library

  VAL_RESULT(VAL_CALL* getTokenList)(VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* getTokenCapabilities)(const std::uint8_t* token, std::uint32_t tokenLength, VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* checkPin)(const std::uint8_t* token, std::uint32_t tokenLength, const char* pin,
                                 VAL_TASK_ID* task);
  // The PIN is entered on the token's own PIN pad.
  VAL_RESULT(VAL_CALL* askPin)(const std::uint8_t* token, std::uint32_t tokenLength, VAL_TASK_ID* task);
  // `query` is a packed item tree "q" { "kind" ULong (optional), "lbl" StringA (optional),
  // "lnk" StringA (optional) }: objects matching every given field.
  VAL_RESULT(VAL_CALL* findObjects)(const std::uint8_t* token, std::uint32_t tokenLength, const std::uint8_t* query,
                                    std::uint32_t queryLength, VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* getObjectInfo)(const std::uint8_t* token, std::uint32_t tokenLength, VAL_OBJECT object,
                                      VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* readObject)(const std::uint8_t* token, std::uint32_t tokenLength, VAL_OBJECT object,
                                   VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* writeObject)(const std::uint8_t* token, std::uint32_t tokenLength, VAL_OBJECT object,
                                    const std::uint8_t* data, std::uint32_t dataLength, VAL_TASK_ID* task);
  // `descriptor` is a packed item tree "d" { "kind" ULong, "lbl" StringA, "lnk" StringA,
  // "flags" ULong, "v1" ULong, "v2" ULong }.
  VAL_RESULT(VAL_CALL* createObject)(const std::uint8_t* token, std::uint32_t tokenLength,
                                     const std::uint8_t* descriptor, std::uint32_t descriptorLength,
                                     VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* deleteObject)(const std::uint8_t* token, std::uint32_t tokenLength, VAL_OBJECT object,
                                     VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* initializeToken)(const std::uint8_t* token, std::uint32_t tokenLength, const char* label,
                                        const char* pin, std::uint8_t withoutPin, VAL_TASK_ID* task);
  VAL_RESULT(VAL_CALL* changePin)(const std::uint8_t* token, std::uint32_t tokenLength, const char* oldPin,
                                  const char* newPin, VAL_TASK_ID* task);

  // The finished task's result stream; valid until releaseTaskResult.
  VAL_RESULT(VAL_CALL* getTaskResult)(VAL_TASK_ID task, const std::uint8_t** stream, std::uint32_t* streamLength);
  void(VAL_CALL* releaseTaskResult)(VAL_TASK_ID task);
  // Ends the library's work: no callback is made after it returns.
  void(VAL_CALL* unload)();
};

struct ValInitBlock {
  void* callbackContext;                 // handed back to every callback
  ValResultAvailable resultAvailable;    // a task has finished
  ValTokenEvent tokenAdded;              // a token was connected
  ValTokenEvent tokenRemoved;            // a token was removed
  std::uint8_t reportTokenEvents;        // 1: call tokenAdded/tokenRemoved
  std::uint8_t reportResults;            // 1: call resultAvailable
  std::uint32_t reserved;                // 0
  std::uint32_t magic;                   // kValMagic
  std::uint32_t count;                   // kValBlockCount
  const ValFunctionTable* functions;     // written by the library
};

typedef VAL_RESULT(VAL_CALL* ValInitializeFunction)(ValInitBlock* block, std::uint32_t count);

}  // extern "C"

// Names of the result items (all results: root "res" { "ti", "tfi", "te", "resp" }).
namespace lm2::facade {
inline constexpr char kResultRoot[] = "res";
inline constexpr char kResultTaskId[] = "ti";
inline constexpr char kResultFunction[] = "tfi";
inline constexpr char kResultCode[] = "te";
inline constexpr char kResultResponse[] = "resp";

inline constexpr char kTokenList[] = "tl";        // in resp: vector of buffers, one per token
inline constexpr char kTokenCapabilityRoot[] = "tc";  // in resp: TOKENCAPABILITY_ROOT
inline constexpr char kObjectList[] = "ol";       // CITEM_NAME_OBJECT_LIST: vector of ULongLong "oh"
inline constexpr char kObjectInfo[] = "oi";       // CITEM_NAME_OBJECT_INFO: vector, fields below
inline constexpr char kObjectData[] = "od";       // CITEM_NAME_OBJECT_DATA: buffer
inline constexpr char kObject[] = "oh";           // CITEM_NAME_OBJECT: ULongLong handle
inline constexpr char kInfoApplication[] = "app"; // StringA: the link text of a credential object
inline constexpr char kInfoLabel[] = "lbl";       // StringA
inline constexpr char kInfoAttributes[] = "att";  // ULong: object kind (1 public, 2 private)
inline constexpr char kInfoSize[] = "sz";         // ULong: content size in bytes

inline constexpr char kQueryKind[] = "kind";
inline constexpr char kQueryLabel[] = "lbl";
inline constexpr char kQueryLink[] = "lnk";

// Result codes the engine puts in "te" (besides success 0x2000000020100000).
inline constexpr std::uint64_t kWrongPin = 0xC0100000C0100001ull;
inline constexpr std::uint64_t kPinLocked = 0xC0100000C0100002ull;
inline constexpr std::uint64_t kTokenNotPresent = 0xC0100000C0100003ull;
inline constexpr std::uint64_t kObjectNotFound = 0xC0100000C0100004ull;
inline constexpr std::uint64_t kPinPadCancelled = 0xC0100000C0100005ull;
inline constexpr std::uint64_t kNotSupported = 0xC0100000C0100006ull;
}  // namespace lm2::facade
