/// What the project relies on the system to do, in both lanes.

#include "protocol/control_protocol.h"
#include "raw_client.h"

#include <gtest/gtest.h>

TEST(Pipe, KeepsTheBytesOfAClientThatHasGoneAndThenSaysSo) {
    const WideString name = ControlPipeName(GetCurrentProcessId()) + TEXT("_test");
    const OwnedHandle server(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_WAIT, 1, 512, 512, 0, nullptr));
    {
        const RawClient client(name);
        EXPECT_FALSE(ConnectNamedPipe(server.Get(), nullptr));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_PIPE_CONNECTED});
        EXPECT_TRUE(WriteBytes(client.Pipe->Get(), "bytes"));
    }
    DWORD count = 0;
    EXPECT_TRUE(PeekNamedPipe(server.Get(), nullptr, 0, nullptr, &count, nullptr));
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(MarkedReader().Until("\n", server.Get()), "bytes<end>");
    EXPECT_FALSE(PeekNamedPipe(server.Get(), nullptr, 0, nullptr, &count, nullptr));
    EXPECT_FALSE(WriteBytes(server.Get(), "x"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_DATA});
}
