/* A whole host in plain C: a window, the server, one command answered, a stop in order. */
#include <orvane_mcp/exports.h>
#include <stdio.h>
#include <wchar.h>
#include <windows.h>

static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    HostCommand* command = (HostCommand*)lParam;
    if (message != HostCommandMessage) return DefWindowProcW(window, message, wParam, lParam);
    if (command->CommandId == HostCommandId_SelectNet) {
        _snwprintf(command->Reply, 16383, L"selected_net=%ls", command->LongText);
        command->Success = 1;
    } else {
        wcscpy(command->Reply, L"This host only selects nets.");
    }
    PostQuitMessage(0); /* one command is all it lives for */
    return 1;
}

static void PrintClients(void) {
    int32_t i;
    for (i = 0; i < OrvaneMcp_GetClientCount(); ++i) {
        ClientInfo client = {sizeof client, {0}, {0}, {0}};
        if (OrvaneMcp_GetClientInfo(i, &client)) printf("client: %ls\n", client.DisplayName);
    }
}

int main(void) {
    WNDCLASSW windowClass = {0};
    ControlServerStartInfo info = {0};
    MSG message;
    wchar_t text[300];

    windowClass.lpfnWndProc = Procedure;
    windowClass.lpszClassName = L"PackageHost";
    RegisterClassW(&windowClass);
    info.HostWindowHandle = CreateWindowExW(0, L"PackageHost", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, NULL, NULL, NULL);

    if (OrvaneMcp_GetApiVersion() != 11 || !OrvaneMcp_StartControlServer(&info)) {
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
