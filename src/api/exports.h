/* Everything a host of orvane_mcp sees: ten functions, the records that cross the boundary, the command ids.
 *
 * Compiles as C11 and as C++20 and includes nothing but the language's own headers.
 * 1. Results are 32-bit: 1 means yes or success, 0 means no or failure.
 * 2. Text is NUL-terminated UTF-16. A capacity counts code units, including the terminator. Text that doesn't
 *    fit is truncated and terminated; that is not a failure.
 * 3. No function keeps a pointer that the caller passed in. None throws, with one exception:
 *    OrvaneMcp_RunStdioBridge throws std::system_error if it can't start its second thread.
 * 4. Any thread may call any function, but only one thread at a time may start or stop the server.
 * 5. Once a server or bridge has started, the library stays loaded: freeing the module does no harm.
 */
#ifndef ORVANE_MCP_EXPORTS_H
#define ORVANE_MCP_EXPORTS_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

/* One UTF-16 code unit: wchar_t where that has 16 bits, as on Windows. */
#if WCHAR_MAX <= 0xFFFF
typedef wchar_t OrvaneMcpChar;
#elif defined(__cplusplus)
typedef char16_t OrvaneMcpChar;
#else
typedef uint_least16_t OrvaneMcpChar;
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What the host passes when it starts the server. Not used after the call returns. */
typedef struct ControlServerStartInfo {
    uint64_t Reserved;             /* ignored */
    void* HostWindowHandle;        /* the window (HWND) that answers HostCommandMessage */
    uint32_t ProcessIdOverride;    /* the number in the pipe's name; 0 means the process id */
    OrvaneMcpChar Directory[1024]; /* the launcher's directory, up to its NUL; empty means the library's */
} ControlServerStartInfo;

/* One connected client, filled in by OrvaneMcp_GetClientInfo. */
typedef struct ClientInfo {
    uint32_t Size; /* set by the host to sizeof(ClientInfo) or more */
    OrvaneMcpChar DisplayName[128];
    OrvaneMcpChar Transport[64];
    OrvaneMcpChar ConnectedAt[64]; /* local time, "2026-01-31 08:15:00"; empty when unknown */
} ClientInfo;

/* The window message that delivers a command to the host: wParam is 0, lParam the address of a HostCommand. */
enum { HostCommandMessage = 34464 };

/* What a HostCommand asks for. The meaning of an id never changes. */
typedef enum HostCommandId {
    HostCommandId_SelectNet = 1,
    HostCommandId_GetBoardState = 2,
    HostCommandId_SelectComponent = 3,
    HostCommandId_SelectPin = 4,
    HostCommandId_FindComponents = 5,
    HostCommandId_GetComponent = 6,
    HostCommandId_GetNet = 7,
    HostCommandId_ListComponents = 8,
    HostCommandId_SearchFiles = 9,
    HostCommandId_GetDiagnosticHints = 10,
    HostCommandId_SearchIndexedContent = 11,
    HostCommandId_GetPdfPageContext = 12,
    HostCommandId_UpdateComponent = 13,
    HostCommandId_UpdateNet = 14,
    HostCommandId_ExportOrv = 15,
    HostCommandId_PdfiumExtractText = 16,
    HostCommandId_BulkUpdateComponents = 17
} HostCommandId;

/* One command for the host. The library owns the record and everything it points to; it is valid only until the
 * window procedure returns. The host answers in Success and in Reply or LongReply, and returns non-zero from the
 * message. The command succeeded only if Success and that result are both non-zero. */
typedef struct HostCommand {
    uint32_t Size;                 /* sizeof(HostCommand) */
    int32_t CommandId;             /* a HostCommandId */
    OrvaneMcpChar Text[1024];      /* the first 1023 code units of the command text */
    int32_t Success;               /* host: non-zero when the command succeeded */
    OrvaneMcpChar Reply[16384];    /* host: the reply text, when it fits with its NUL */
    uint32_t Reserved;             /* 0 */
    const OrvaneMcpChar* LongText; /* the whole command text, NUL-terminated, never null */
    uint32_t LongTextLength;       /* in code units, without the terminator */
    OrvaneMcpChar* LongReply;      /* host: a reply of any length from CoTaskMemAlloc; the library frees it */
    uint32_t LongReplyLength;      /* host: in code units; the block needs no terminator */
} HostCommand;

/* Serves one MCP client on standard input and output until the input ends. For the launcher. Returns 0. */
int32_t OrvaneMcp_RunStdioBridge(void);

/* Starts the control server; `info` may be null. Returns 1 if the server is running, even if it already was.
 * After 0, OrvaneMcp_GetLastError returns the reason, unless memory ran out. */
int32_t OrvaneMcp_StartControlServer(const ControlServerStartInfo* info);

/* Stops the control server and withdraws its announcement. Waits 2 s at most for sessions. A command already on its
 * way may still reach the window afterwards. Don't call it from DllMain or a DLL's static destructors. */
void OrvaneMcp_StopControlServer(void);

/* Always returns 11. */
int32_t OrvaneMcp_GetApiVersion(void);

/* The pipe's name and the launcher's path as set by the last start; a stop leaves them unchanged. Both return 0 for a
 * null buffer or a capacity below 1, else 1. */
int32_t OrvaneMcp_GetPipeName(OrvaneMcpChar* buffer, int32_t capacity);
int32_t OrvaneMcp_GetServerPath(OrvaneMcpChar* buffer, int32_t capacity);

/* The last failure; a stop doesn't clear it. Returns 1 if there is one; 0 if not, or if the buffer is unusable. */
int32_t OrvaneMcp_GetLastError(OrvaneMcpChar* buffer, int32_t capacity);

/* The number of connected clients, and one client by index, in order of arrival. When a client leaves, the later ones
 * move down, so an index that was valid a moment ago can return 0. */
int32_t OrvaneMcp_GetClientCount(void);
int32_t OrvaneMcp_GetClientInfo(int32_t index, ClientInfo* info);

/* Disconnects every listed client and waits about two seconds at most for the list to empty. Returns 0 only if there
 * was no connection to end and the list still didn't empty (clients kept arriving), or if memory ran out. */
int32_t OrvaneMcp_DisconnectClients(void);

#ifdef __cplusplus
}
#define ORVANE_MCP_PIN_LAYOUT(condition) static_assert(condition, #condition)
#else
#define ORVANE_MCP_PIN_LAYOUT(condition) _Static_assert(condition, #condition)
#endif

ORVANE_MCP_PIN_LAYOUT(sizeof(OrvaneMcpChar) == 2);
ORVANE_MCP_PIN_LAYOUT(offsetof(ControlServerStartInfo, HostWindowHandle) == 8);
ORVANE_MCP_PIN_LAYOUT(offsetof(ControlServerStartInfo, ProcessIdOverride) == 16);
ORVANE_MCP_PIN_LAYOUT(offsetof(ControlServerStartInfo, Directory) == 20);
ORVANE_MCP_PIN_LAYOUT(offsetof(ClientInfo, DisplayName) == 4);
ORVANE_MCP_PIN_LAYOUT(offsetof(ClientInfo, Transport) == 260);
ORVANE_MCP_PIN_LAYOUT(offsetof(ClientInfo, ConnectedAt) == 388);
ORVANE_MCP_PIN_LAYOUT(sizeof(ClientInfo) == 516);
ORVANE_MCP_PIN_LAYOUT(offsetof(HostCommand, CommandId) == 4);
ORVANE_MCP_PIN_LAYOUT(offsetof(HostCommand, Text) == 8);
ORVANE_MCP_PIN_LAYOUT(offsetof(HostCommand, Success) == 2056);
ORVANE_MCP_PIN_LAYOUT(offsetof(HostCommand, Reply) == 2060);
ORVANE_MCP_PIN_LAYOUT(offsetof(HostCommand, Reserved) == 34828);
ORVANE_MCP_PIN_LAYOUT(offsetof(HostCommand, LongText) == 34832);
ORVANE_MCP_PIN_LAYOUT(offsetof(HostCommand, LongTextLength) == 34840);
ORVANE_MCP_PIN_LAYOUT(offsetof(HostCommand, LongReply) == 34848);
ORVANE_MCP_PIN_LAYOUT(offsetof(HostCommand, LongReplyLength) == 34856);
ORVANE_MCP_PIN_LAYOUT(sizeof(HostCommand) == 34864);

#endif
