/// The commands by which the library drives this viewer: what the viewer shows, and one handler for each id.
/// All of it belongs to the window's thread, so nothing here takes a lock.
#pragma once

#include "api/exports.h"
#include "board.h"

/// All that the viewer has open and selected.
struct Viewer {
    std::filesystem::path boardPath;
    Board board;
    std::filesystem::path schematicPath;  ///< the drawing set that is attached to the board; empty for none
    std::string selectedRefdes, selectedPin, selectedNet;
};

/// The fields of a command's text, which tabs part. A command gets no fewer fields than its row promises.
using Fields = std::vector<std::string>;

/// The handlers that read files beside the board; like all, they give a command's reply, or throw a Refusal.
std::string SearchFiles(Viewer& viewer, const Fields& fields);
std::string SearchIndexedContent(Viewer& viewer, const Fields& fields);
std::string GetDiagnosticHints(Viewer& viewer, const Fields& fields);
std::string GetPdfPageContext(Viewer& viewer, const Fields& fields);
std::string PdfiumExtractText(Viewer& viewer, const Fields& fields);

/// Carries out the library's command and fills in Success and Reply or LongReply. No exception leaves it.
/// Gives one line for the console.
std::string AnswerCommand(Viewer& viewer, HostCommand& command);

/// Shows another board, with its drawing set when it names one. On a Refusal all stays as it was.
void OpenBoard(Viewer& viewer, const std::filesystem::path& file);

/// A field as a number that is not negative, flags too; a Refusal when it is something else.
std::size_t Number(const Fields& fields, std::size_t index);

/// "key=value" and a line feed; the value stays on the line.
std::string Entry(const char* key, const std::string& value);
std::string Entry(const char* key, std::size_t value);
