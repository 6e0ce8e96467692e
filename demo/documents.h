/// The commands that read files beside the board: the file search, the content search, the pages of the drawing
/// set and the diagnostic notes. Handlers as commands.h describes them.
#pragma once

#include "commands.h"

#include <string>

std::string SearchFiles(Viewer& viewer, const Fields& fields);
std::string SearchIndexedContent(Viewer& viewer, const Fields& fields);
std::string GetDiagnosticHints(Viewer& viewer, const Fields& fields);
std::string GetPdfPageContext(Viewer& viewer, const Fields& fields);
std::string PdfiumExtractText(Viewer& viewer, const Fields& fields);
