/// The one header that knows the system. On Windows it is the Windows headers and no more. Elsewhere it declares
/// the calls, types and codes that this project uses, by their own names; standin/ implements them.
#pragma once

#if defined(_WIN32)

// windows.h comes first: the others need its types.
// clang-format off
#include <windows.h>
#include <fcntl.h>
#include <io.h>
#include <objbase.h>
#include <tlhelp32.h>
#include <wchar.h>
// clang-format on

#else

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <cwctype>

#define WINAPI
#define CALLBACK
#define TEXT(literal) u##literal

// ---- Types -------------------------------------------------------------------------------------------------------

using WCHAR = char16_t;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using BOOL = int;
using DWORD_PTR = std::uintptr_t;
using ULONG_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using LSTATUS = LONG;
using LPVOID = void*;
using LPCVOID = const void*;
using LPDWORD = DWORD*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using HANDLE = void*;
using HWND = struct HWND__*;
using HKEY = struct HKEY__*;
using HINSTANCE = struct HINSTANCE__*;
using HMODULE = HINSTANCE;
using HMENU = struct HMENU__*;
using HICON = struct HICON__*;
using HCURSOR = HICON;
using HBRUSH = struct HBRUSH__*;
using REGSAM = DWORD;
using errno_t = int;

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~static_cast<std::uintptr_t>(0));
inline constexpr DWORD INFINITE = 0xFFFFFFFF;

struct OVERLAPPED;

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

struct SYSTEMTIME {
    WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};

// ---- Error codes ---------------------------------------------------------------------------------------------------

inline constexpr LSTATUS ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_FUNCTION = 1;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_BROKEN_PIPE = 109;
inline constexpr DWORD ERROR_SEM_TIMEOUT = 121;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
inline constexpr DWORD ERROR_BAD_PIPE = 230;
inline constexpr DWORD ERROR_PIPE_BUSY = 231;
inline constexpr DWORD ERROR_NO_DATA = 232;
inline constexpr DWORD ERROR_PIPE_NOT_CONNECTED = 233;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_PIPE_CONNECTED = 535;
inline constexpr DWORD ERROR_PIPE_LISTENING = 536;
inline constexpr DWORD ERROR_HANDLES_CLOSED = 676;
inline constexpr DWORD ERROR_OPERATION_ABORTED = 995;
inline constexpr DWORD ERROR_NOT_FOUND = 1168;
inline constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
inline constexpr DWORD ERROR_CANNOT_FIND_WND_CLASS = 1407;
inline constexpr DWORD ERROR_CLASS_ALREADY_EXISTS = 1410;

DWORD GetLastError();
void SetLastError(DWORD code);

// ---- Handles, pipes and files --------------------------------------------------------------------------------------

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD PIPE_ACCESS_DUPLEX = 3;
inline constexpr DWORD PIPE_TYPE_BYTE = 0;
inline constexpr DWORD PIPE_READMODE_BYTE = 0;
inline constexpr DWORD PIPE_WAIT = 0;
inline constexpr DWORD PIPE_UNLIMITED_INSTANCES = 255;
inline constexpr DWORD HANDLE_FLAG_INHERIT = 1;
inline constexpr DWORD STD_INPUT_HANDLE = static_cast<DWORD>(-10);
inline constexpr DWORD STD_OUTPUT_HANDLE = static_cast<DWORD>(-11);
inline constexpr DWORD STD_ERROR_HANDLE = static_cast<DWORD>(-12);

HANDLE CreateNamedPipeW(LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD maxInstances, DWORD outBufferSize,
                        DWORD inBufferSize, DWORD defaultTimeOut, SECURITY_ATTRIBUTES* security);
BOOL ConnectNamedPipe(HANDLE pipe, OVERLAPPED* overlapped);
BOOL DisconnectNamedPipe(HANDLE pipe);
BOOL PeekNamedPipe(HANDLE pipe, LPVOID buffer, DWORD bufferSize, LPDWORD bytesRead, LPDWORD bytesAvailable,
                   LPDWORD bytesLeftThisMessage);
BOOL WaitNamedPipeW(LPCWSTR name, DWORD timeOut);
HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD shareMode, SECURITY_ATTRIBUTES* security, DWORD disposition,
                   DWORD flags, HANDLE templateFile);
BOOL CreatePipe(HANDLE* readEnd, HANDLE* writeEnd, SECURITY_ATTRIBUTES* security, DWORD size);
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD bytesRead, OVERLAPPED* overlapped);
BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD bytesWritten, OVERLAPPED* overlapped);
BOOL CancelIoEx(HANDLE file, OVERLAPPED* overlapped);
BOOL CloseHandle(HANDLE handle);
BOOL SetHandleInformation(HANDLE handle, DWORD mask, DWORD flags);
HANDLE GetStdHandle(DWORD which);
BOOL GetConsoleMode(HANDLE console, LPDWORD mode);

// ---- Registry ------------------------------------------------------------------------------------------------------

inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(0x80000001));
inline constexpr REGSAM KEY_QUERY_VALUE = 1;
inline constexpr REGSAM KEY_SET_VALUE = 2;
inline constexpr DWORD REG_OPTION_NON_VOLATILE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;

LSTATUS RegOpenKeyExW(HKEY root, LPCWSTR subKey, DWORD options, REGSAM access, HKEY* key);
LSTATUS RegCreateKeyExW(HKEY root, LPCWSTR subKey, DWORD reserved, LPWSTR keyClass, DWORD options, REGSAM access,
                        const SECURITY_ATTRIBUTES* security, HKEY* key, LPDWORD disposition);
LSTATUS RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, BYTE* data, LPDWORD size);
LSTATUS RegSetValueExW(HKEY key, LPCWSTR valueName, DWORD reserved, DWORD type, const BYTE* data, DWORD size);
LSTATUS RegDeleteValueW(HKEY key, LPCWSTR valueName);
LSTATUS RegCloseKey(HKEY key);

// ---- Processes and modules -----------------------------------------------------------------------------------------

inline constexpr DWORD MAX_PATH = 260;
inline constexpr DWORD TH32CS_SNAPPROCESS = 2;
inline constexpr DWORD SYNCHRONIZE = 0x100000;
inline constexpr DWORD PROCESS_TERMINATE = 1;
inline constexpr DWORD PROCESS_QUERY_LIMITED_INFORMATION = 0x1000;
inline constexpr DWORD STILL_ACTIVE = 259;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD STARTF_USESTDHANDLES = 0x100;
inline constexpr DWORD CREATE_NO_WINDOW = 0x08000000;
inline constexpr DWORD DLL_PROCESS_DETACH = 0;
inline constexpr DWORD DLL_PROCESS_ATTACH = 1;
inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_PIN = 1;
inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS = 4;

struct PROCESSENTRY32W {
    DWORD dwSize;
    DWORD th32ProcessID;
    DWORD cntThreads;
    DWORD th32ParentProcessID;
    WCHAR szExeFile[MAX_PATH];
};

struct STARTUPINFOW {
    DWORD cb;
    DWORD dwFlags;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
};

struct PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
};

HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD processId);
BOOL Process32FirstW(HANDLE snapshot, PROCESSENTRY32W* entry);
BOOL Process32NextW(HANDLE snapshot, PROCESSENTRY32W* entry);
HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD processId);
BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode);
BOOL GetProcessTimes(HANDLE process, FILETIME* creation, FILETIME* exit, FILETIME* kernel, FILETIME* user);
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
BOOL QueryFullProcessImageNameW(HANDLE process, DWORD flags, LPWSTR path, LPDWORD size);
DWORD GetCurrentProcessId();
HANDLE GetCurrentProcess();
BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, SECURITY_ATTRIBUTES* process, SECURITY_ATTRIBUTES* thread,
                    BOOL inheritHandles, DWORD flags, LPVOID environment, LPCWSTR directory, STARTUPINFOW* startup,
                    PROCESS_INFORMATION* information);
BOOL TerminateProcess(HANDLE process, UINT exitCode);
DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD size);
BOOL GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE* module);
BOOL DisableThreadLibraryCalls(HMODULE module);
HMODULE LoadLibraryW(LPCWSTR path);
BOOL FreeLibrary(HMODULE module);

using FARPROC = std::intptr_t (*)();
FARPROC GetProcAddress(HMODULE module, const char* name);

// ---- Windows and messages ------------------------------------------------------------------------------------------

using WNDPROC = LRESULT (*)(HWND, UINT, WPARAM, LPARAM);
using PHANDLER_ROUTINE = BOOL (*)(DWORD);

inline constexpr UINT WM_DESTROY = 0x0002;
inline constexpr UINT WM_CLOSE = 0x0010;
inline constexpr UINT WM_QUIT = 0x0012;
inline constexpr UINT WM_TIMER = 0x0113;
inline constexpr UINT WM_APP = 0x8000;
inline const HWND HWND_MESSAGE = reinterpret_cast<HWND>(static_cast<std::intptr_t>(-3));
inline constexpr DWORD CTRL_C_EVENT = 0;
inline constexpr DWORD CTRL_BREAK_EVENT = 1;
inline constexpr DWORD CTRL_CLOSE_EVENT = 2;

struct WNDCLASSW {
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCWSTR lpszMenuName;
    LPCWSTR lpszClassName;
};

struct POINT {
    LONG x;
    LONG y;
};

struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
};

WORD RegisterClassW(const WNDCLASSW* windowClass);
HWND CreateWindowExW(DWORD extendedStyle, LPCWSTR className, LPCWSTR windowName, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter);
BOOL DestroyWindow(HWND window);
BOOL IsWindow(HWND window);
LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
void PostQuitMessage(int exitCode);
BOOL GetMessageW(MSG* message, HWND window, UINT first, UINT last);
BOOL TranslateMessage(const MSG* message);
LRESULT DispatchMessageW(const MSG* message);
BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL add);

LPVOID CoTaskMemAlloc(SIZE_T size);
void CoTaskMemFree(LPVOID block);

// ---- Text and standard streams -------------------------------------------------------------------------------------

inline constexpr UINT CP_UTF8 = 65001;
inline constexpr std::size_t _TRUNCATE = ~static_cast<std::size_t>(0);
inline constexpr int _O_BINARY = 0x8000;

int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, LPWSTR target, int capacity);
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR source, int sourceLength, char* target, int capacity,
                        const char* defaultChar, BOOL* usedDefault);
errno_t wcsncpy_s(LPWSTR target, std::size_t capacity, LPCWSTR source, std::size_t count);
int swprintf_s(LPWSTR target, std::size_t capacity, LPCWSTR format, ...);
int _wcsicmp(LPCWSTR left, LPCWSTR right);
int _fileno(std::FILE* stream);
int _setmode(int file, int mode);
BOOL SetConsoleOutputCP(UINT codePage);

// The C library's own iswspace knows only ASCII in the "C" locale; Windows' knows Unicode's blanks.
int StandinIsWideSpace(std::wint_t unit);
#define iswspace StandinIsWideSpace

// ---- Time ----------------------------------------------------------------------------------------------------------

DWORD GetTickCount();
void Sleep(DWORD milliseconds);
void GetSystemTimeAsFileTime(FILETIME* time);
BOOL FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local);
BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* fields);

#endif
