/// The agent clients that have a standard name: the bridge recognises them by the image name of its parent process, the
/// server by the name that a client gives itself.
#pragma once

#include "text/wide.h"

#include <string_view>

/// The name of a client that is not recognised and gives no name.
inline constexpr std::string_view UnnamedClient = "MCP client";

/// Matches a lower-cased name by a part of it, or as a whole. An empty member matches nothing.
struct NameTest {
    WideView Part;
    WideView Whole;

    constexpr bool Holds(WideView lowerName) const {
        return (!Part.empty() && lowerName.find(Part) != WideView::npos) || (!Whole.empty() && lowerName == Whole);
    }
};

struct KnownClient {
    std::string_view Label;
    NameTest ImageName;
    NameTest GivenName;
};

/// The first row that matches wins.
inline constexpr KnownClient KnownClients[] = {
    {"Codex MCP client", {TEXT("codex"), {}}, {TEXT("codex"), {}}},
    {"Claude MCP client", {TEXT("claude"), {}}, {TEXT("claude"), {}}},
    {"VS Code MCP client", {{}, TEXT("code.exe")}, {TEXT("vs code"), TEXT("code")}},
};
