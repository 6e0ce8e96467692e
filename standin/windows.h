/// The Windows calls, types and codes that this project uses, by their own names, for a machine without Windows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <cwctype>

// Everything else in the stand-in is hidden, so that its names can't clash with the project's.
#pragma GCC visibility push(default)

#define WINAPI
#define CALLBACK
#define TEXT(literal) u##literal

using WCHAR = char16_t;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using BOOL = int;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using LSTATUS = std::int32_t;
using REGSAM = DWORD;
using errno_t = int;
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

inline constexpr BOOL FALSE = 0, TRUE = 1;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~static_cast<std::uintptr_t>(0));

struct OVERLAPPED;
struct SECURITY_ATTRIBUTES;

inline constexpr LSTATUS ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2, ERROR_ACCESS_DENIED = 5, ERROR_INVALID_HANDLE = 6,
                       ERROR_NOT_ENOUGH_MEMORY = 8, ERROR_INVALID_PARAMETER = 87, ERROR_BROKEN_PIPE = 109,
                       ERROR_SEM_TIMEOUT = 121, ERROR_INSUFFICIENT_BUFFER = 122, ERROR_PIPE_BUSY = 231,
                       ERROR_NO_DATA = 232, ERROR_PIPE_NOT_CONNECTED = 233, ERROR_MORE_DATA = 234,
                       ERROR_PIPE_CONNECTED = 535, ERROR_OPERATION_ABORTED = 995, ERROR_NOT_FOUND = 1168;

DWORD GetLastError();
void SetLastError(DWORD code);

// ---- Handles, pipes and files --------------------------------------------------------------------------------------
inline constexpr DWORD GENERIC_READ = 0x80000000, GENERIC_WRITE = 0x40000000, OPEN_EXISTING = 3,
                       FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD PIPE_ACCESS_DUPLEX = 3, PIPE_TYPE_BYTE = 0, PIPE_READMODE_BYTE = 0, PIPE_WAIT = 0,
                       PIPE_UNLIMITED_INSTANCES = 255;
inline constexpr DWORD STD_INPUT_HANDLE = static_cast<DWORD>(-10), STD_OUTPUT_HANDLE = static_cast<DWORD>(-11),
                       STD_ERROR_HANDLE = static_cast<DWORD>(-12);

HANDLE CreateNamedPipeW(LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD maxInstances, DWORD outBufferSize,
                        DWORD inBufferSize, DWORD defaultTimeOut, SECURITY_ATTRIBUTES* security);
BOOL ConnectNamedPipe(HANDLE pipe, OVERLAPPED* overlapped);
BOOL DisconnectNamedPipe(HANDLE pipe);
BOOL PeekNamedPipe(HANDLE pipe, LPVOID buffer, DWORD bufferSize, LPDWORD bytesRead, LPDWORD bytesAvailable,
                   LPDWORD bytesLeftThisMessage);
BOOL WaitNamedPipeW(LPCWSTR name, DWORD timeOut);
HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD shareMode, SECURITY_ATTRIBUTES* security, DWORD disposition,
                   DWORD flags, HANDLE templateFile);
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD bytesRead, OVERLAPPED* overlapped);
BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD bytesWritten, OVERLAPPED* overlapped);
BOOL CancelIoEx(HANDLE file, OVERLAPPED* overlapped);
BOOL CloseHandle(HANDLE handle);
HANDLE GetStdHandle(DWORD which);

// ---- Registry ------------------------------------------------------------------------------------------------------
inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(0x80000001));
inline constexpr REGSAM KEY_QUERY_VALUE = 1, KEY_SET_VALUE = 2;
inline constexpr DWORD REG_OPTION_NON_VOLATILE = 0, REG_SZ = 1, REG_EXPAND_SZ = 2, REG_BINARY = 3, REG_DWORD = 4;

LSTATUS RegOpenKeyExW(HKEY root, LPCWSTR subKey, DWORD options, REGSAM access, HKEY* key);
LSTATUS RegCreateKeyExW(HKEY root, LPCWSTR subKey, DWORD reserved, LPWSTR keyClass, DWORD options, REGSAM access,
                        const SECURITY_ATTRIBUTES* security, HKEY* key, LPDWORD disposition);
LSTATUS RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, BYTE* data, LPDWORD size);
LSTATUS RegSetValueExW(HKEY key, LPCWSTR valueName, DWORD reserved, DWORD type, const BYTE* data, DWORD size);
LSTATUS RegDeleteValueW(HKEY key, LPCWSTR valueName);
LSTATUS RegCloseKey(HKEY key);

// ---- Time ----------------------------------------------------------------------------------------------------------
struct FILETIME {
    DWORD dwLowDateTime, dwHighDateTime;
};

struct SYSTEMTIME {
    WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};

DWORD GetTickCount();
void Sleep(DWORD milliseconds);
void GetSystemTimeAsFileTime(FILETIME* time);
BOOL FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local);
BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* fields);

// ---- Processes and modules -----------------------------------------------------------------------------------------
inline constexpr DWORD TH32CS_SNAPPROCESS = 2, SYNCHRONIZE = 0x100000, PROCESS_QUERY_LIMITED_INFORMATION = 0x1000;
inline constexpr DWORD STILL_ACTIVE = 259, WAIT_OBJECT_0 = 0, WAIT_TIMEOUT = 258, WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD DLL_PROCESS_DETACH = 0, DLL_PROCESS_ATTACH = 1, GET_MODULE_HANDLE_EX_FLAG_PIN = 1,
                       GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS = 4;

struct PROCESSENTRY32W {
    DWORD dwSize, th32ProcessID, th32ParentProcessID;
    WCHAR szExeFile[260];
};

HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD processId);
BOOL Process32FirstW(HANDLE snapshot, PROCESSENTRY32W* entry);
BOOL Process32NextW(HANDLE snapshot, PROCESSENTRY32W* entry);
HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD processId);
HANDLE GetCurrentProcess();
DWORD GetCurrentProcessId();
BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode);
BOOL GetProcessTimes(HANDLE process, FILETIME* creation, FILETIME* exit, FILETIME* kernel, FILETIME* user);
BOOL QueryFullProcessImageNameW(HANDLE process, DWORD flags, LPWSTR path, LPDWORD size);
DWORD WaitForSingleObject(HANDLE process, DWORD milliseconds);
DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD size);
BOOL GetModuleHandleExW(DWORD flags, LPCWSTR address, HMODULE* module);
BOOL DisableThreadLibraryCalls(HMODULE module);

// ---- Windows and messages ------------------------------------------------------------------------------------------
using WNDPROC = LRESULT (*)(HWND, UINT, WPARAM, LPARAM);

inline constexpr UINT WM_DESTROY = 0x0002, WM_CLOSE = 0x0010, WM_QUIT = 0x0012, WM_APP = 0x8000;
inline const HWND HWND_MESSAGE = reinterpret_cast<HWND>(static_cast<std::intptr_t>(-3));

struct WNDCLASSW {
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra, cbWndExtra;
    HINSTANCE hInstance;
    void *hIcon, *hCursor, *hbrBackground;
    LPCWSTR lpszMenuName, lpszClassName;
};

struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

WORD RegisterClassW(const WNDCLASSW* windowClass);
HWND CreateWindowExW(DWORD extendedStyle, LPCWSTR className, LPCWSTR windowName, DWORD style, int x, int y, int width,
                     int height, HWND parent, void* menu, HINSTANCE instance, LPVOID parameter);
BOOL DestroyWindow(HWND window);
BOOL IsWindow(HWND window);
LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
void PostQuitMessage(int exitCode);
BOOL GetMessageW(MSG* message, HWND window, UINT first, UINT last);
LRESULT DispatchMessageW(const MSG* message);
LPVOID CoTaskMemAlloc(std::size_t size);
void CoTaskMemFree(LPVOID block);

// ---- Console and text ----------------------------------------------------------------------------------------------
using PHANDLER_ROUTINE = BOOL (*)(DWORD);

inline constexpr DWORD CTRL_C_EVENT = 0;
inline constexpr int _O_BINARY = 0x8000;
inline constexpr UINT CP_UTF8 = 65001;
inline constexpr std::size_t _TRUNCATE = ~static_cast<std::size_t>(0);

BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL add);
BOOL SetConsoleOutputCP(UINT codePage);
BOOL GetConsoleMode(HANDLE console, LPDWORD mode);
int _fileno(std::FILE* stream);
int _setmode(int file, int mode);
int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, LPWSTR target, int capacity);
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR source, int sourceLength, char* target, int capacity,
                        const char* defaultChar, BOOL* usedDefault);
errno_t wcsncpy_s(LPWSTR target, std::size_t capacity, LPCWSTR source, std::size_t count);
int swprintf_s(LPWSTR target, std::size_t capacity, LPCWSTR format, ...);
int _wcsicmp(LPCWSTR left, LPCWSTR right);

// In the "C" locale the C library's iswspace knows only ASCII; that of Windows knows Unicode's blanks.
int StandinIsWideSpace(std::wint_t unit);
#define iswspace StandinIsWideSpace

#pragma GCC visibility pop
