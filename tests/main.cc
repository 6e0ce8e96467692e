#include <gmock/gmock.h>

int RunAgent(const std::string& mode);
int RunGuestHost(const std::string& mode);

int main(int argc, char** argv) {
    if (argc > 2 && argv[1] == std::string("--host")) return RunGuestHost(argv[2]);
    if (argc > 2 && argv[1] == std::string("--agent")) return RunAgent(argv[2]);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
