/// The commands by which the library drives this viewer: what the viewer shows, and one handler for each id.
/// All of it belongs to the window's thread, so nothing here takes a lock.
#pragma once

#include "api/exports.h"
#include "board.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// All that the viewer has open and selected.
struct Viewer {
    std::filesystem::path boardPath;
    Board board;
    std::optional<Schematic> schematic;  ///< attached to the board
    std::string selectedRefdes, selectedPin, selectedNet;
    std::vector<std::string> findParts;  ///< what Find parts shows
    int unsavedEdits = 0;
    std::vector<std::filesystem::path> dataFolders;  ///< where the viewer's own files may stand, best first
    std::filesystem::path pictureFolder;             ///< rendered pages go there; empty until the first one
    int pictures = 0;
};

/// The fields of a command's text, which tabs part. A command gets no fewer fields than its row promises.
using Fields = std::vector<std::string>;

/// Carries out a command and gives its reply. Throws a Refusal, or another exception, when it can't.
using CommandHandler = std::string (*)(Viewer& viewer, const Fields& fields);

/// Carries out the library's command and fills in Success and Reply or LongReply. A handler's exception ends here.
/// Gives one line for the console.
std::string AnswerCommand(Viewer& viewer, HostCommand& command);

/// Shows another board, with its drawing set when it names one that can be read. On a Refusal all stays as it was.
void OpenBoard(Viewer& viewer, const std::filesystem::path& file);

/// The first of the viewer's folders that has the file. A Refusal when none has it.
std::filesystem::path FindData(const Viewer& viewer, const std::string& fileName);

/// A field as what it should be; a Refusal that names it when it is something else.
int NumberField(const Fields& fields, std::size_t index, const char* name);
bool FlagField(const Fields& fields, std::size_t index, const char* name);

/// "key=value" and a line feed; the value stays on the line.
std::string Entry(const char* key, const std::string& value);
std::string Entry(const char* key, std::size_t value);
