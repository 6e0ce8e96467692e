#include "text/paths.h"

namespace {
const WCHAR* const Separators = TEXT("\\/");
}

WideString ParentDirectory(WideView path) {
    const std::size_t separator = path.find_last_of(Separators);
    return separator == WideView::npos ? WideString() : WideString(path.substr(0, separator));
}

WideString JoinPath(WideString directory, WideView fileName) {
    const bool separated = directory.empty() || WideView(Separators).find(directory.back()) != WideView::npos;
    if (!separated) directory += WCHAR('\\');
    return directory.append(fileName);
}
