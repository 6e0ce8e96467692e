/* A complete host in plain C: a window, the server, one command answered, a clean stop. Compiles as C++ too. */
#include <orvane_mcp/exports.h>
#include <stdio.h>
#include <wchar.h>
#include <windows.h>

enum { ReplyCapacity = sizeof(((HostCommand*)0)->Reply) / sizeof(OrvaneMcpChar) };

static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    HostCommand* command = (HostCommand*)lParam;
    if (message != HostCommandMessage) return DefWindowProcW(window, message, wParam, lParam);
    if (command->CommandId == HostCommandId_SelectNet) {
        /* A real viewer selects the net here, and leaves Success at 0 if there is no such net. */
        _snwprintf_s(command->Reply, ReplyCapacity, _TRUNCATE,
                     L"ORVANE_FINAL stop=true no_followup_tools=true\nselected_net=%ls", command->LongText);
        command->Success = 1;
    } else {
        wcscpy_s(command->Reply, ReplyCapacity, L"This host only selects nets.");
    }
    PostQuitMessage(0); /* this example stops after one command */
    return 1;
}

static void PrintClients(void) {
    int32_t i;
    for (i = 0; i < OrvaneMcp_GetClientCount(); ++i) {
        ClientInfo client;
        client.Size = sizeof client;
        if (OrvaneMcp_GetClientInfo(i, &client)) printf("client: %ls\n", client.DisplayName);
    }
}

int main(void) {
    static WNDCLASSW windowClass;       /* static: all zero in C and in C++ */
    static ControlServerStartInfo info; /* an empty Directory: the launcher is beside the library */
    MSG message;
    wchar_t text[300];

    windowClass.lpfnWndProc = Procedure;
    windowClass.lpszClassName = L"OrvaneHost";
    RegisterClassW(&windowClass);
    info.HostWindowHandle = CreateWindowExW(0, L"OrvaneHost", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, NULL, NULL, NULL);

    if (OrvaneMcp_GetApiVersion() < 11 || !OrvaneMcp_StartControlServer(&info)) {
        OrvaneMcp_GetLastError(text, 300);
        printf("not started: %ls\n", text);
        return 1;
    }
    OrvaneMcp_GetPipeName(text, 300);
    printf("serving %ls\n", text);
    fflush(stdout);
    while (GetMessageW(&message, NULL, 0, 0) > 0) DispatchMessageW(&message);
    PrintClients();
    OrvaneMcp_StopControlServer();
    printf("stopped\n");
    return 0;
}
