/// The commands by which the library drives this viewer. All of it belongs to the window's thread and takes no lock.
#pragma once

#include "board.h"

/// All that the viewer has open and selected.
struct Viewer {
    std::filesystem::path boardPath;
    json board;
    std::filesystem::path schematicPath;  ///< the drawing set that is attached to the board; empty for none
    std::string selectedRefdes, selectedPin, selectedNet;
};

/// Carries out the library's command and fills in Success and Reply or LongReply. No exception leaves it. Returns
/// one line for the console.
std::string AnswerCommand(Viewer& viewer, HostCommand& command);

/// Shows another board, with its drawing set if it has one. On a Refusal everything stays unchanged.
void OpenBoard(Viewer& viewer, const std::filesystem::path& file);
