/// The verbs of the control pipe, and the table of those that become host commands. A verb includes its tab; the
/// payload comes after it.
#pragma once

#include "api/exports.h"

#include <string_view>

namespace Verb {
inline constexpr std::string_view GetBoardState = "GET_BOARD_STATE";
inline constexpr std::string_view SelectNet = "SELECT_NET\t";
inline constexpr std::string_view SelectComponent = "SELECT_COMPONENT\t";
inline constexpr std::string_view SelectPin = "SELECT_PIN\t";
inline constexpr std::string_view FindComponents = "FIND_COMPONENTS\t";
inline constexpr std::string_view FindComponentsUi = "FIND_COMPONENTS_UI\t";
inline constexpr std::string_view GetComponent = "GET_COMPONENT\t";
inline constexpr std::string_view GetNet = "GET_NET\t";
inline constexpr std::string_view UpdateComponent = "UPDATE_COMPONENT\t";
inline constexpr std::string_view BulkUpdateComponents = "BULK_UPDATE_COMPONENTS\t";
inline constexpr std::string_view UpdateNet = "UPDATE_NET\t";
inline constexpr std::string_view ExportOrv = "EXPORT_ORV\t";
inline constexpr std::string_view ListComponents = "LIST_COMPONENTS\t";
inline constexpr std::string_view SearchFiles = "SEARCH_FILES\t";
inline constexpr std::string_view SearchIndexedContent = "SEARCH_INDEXED_CONTENT\t";
inline constexpr std::string_view GetPdfPageContext = "GET_PDF_PAGE_CONTEXT\t";
inline constexpr std::string_view PdfiumExtractText = "PDFIUM_EXTRACT_TEXT\t";
inline constexpr std::string_view GetDiagnosticHints = "GET_DIAGNOSTIC_HINTS\t";
/// The one verb that never reaches the host: it renames the client.
inline constexpr std::string_view ClientName = "CLIENT_NAME\t";
}  // namespace Verb

/// A verb and the host command it becomes.
struct HostVerb {
    std::string_view Literal;
    HostCommandId CommandId;
    /// Goes before the payload in the command's text.
    std::string_view TextPrefix = {};

    /// A verb without a tab has no payload and must be the whole line.
    constexpr bool HasPayload() const { return Literal.ends_with('\t'); }
};

/// Every verb that becomes a host command. No literal is a prefix of another, so their order doesn't matter.
inline constexpr HostVerb HostVerbs[] = {
    {Verb::GetBoardState, HostCommandId_GetBoardState},
    {Verb::SelectNet, HostCommandId_SelectNet},
    {Verb::SelectComponent, HostCommandId_SelectComponent},
    {Verb::SelectPin, HostCommandId_SelectPin},
    {Verb::FindComponents, HostCommandId_FindComponents},
    {Verb::FindComponentsUi, HostCommandId_FindComponents, "SHOW_UI\t"},
    {Verb::GetComponent, HostCommandId_GetComponent},
    {Verb::GetNet, HostCommandId_GetNet},
    {Verb::UpdateComponent, HostCommandId_UpdateComponent},
    {Verb::BulkUpdateComponents, HostCommandId_BulkUpdateComponents},
    {Verb::UpdateNet, HostCommandId_UpdateNet},
    {Verb::ExportOrv, HostCommandId_ExportOrv},
    {Verb::ListComponents, HostCommandId_ListComponents},
    {Verb::SearchFiles, HostCommandId_SearchFiles},
    {Verb::SearchIndexedContent, HostCommandId_SearchIndexedContent},
    {Verb::GetPdfPageContext, HostCommandId_GetPdfPageContext},
    {Verb::PdfiumExtractText, HostCommandId_PdfiumExtractText},
    {Verb::GetDiagnosticHints, HostCommandId_GetDiagnosticHints},
};
