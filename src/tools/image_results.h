/// Results with a picture. The viewer puts one marker line into the text of a good reply; the bridge lifts it out
/// and makes it an image block. The data stays as the viewer encoded it: nothing here decodes or checks it.
#pragma once

#include <string>
#include <string_view>

/// Writes the result of a good reply, with an image block when `text` holds a marker with a type and data.
void WriteContentResult(std::string_view idText, std::string text);

/// Takes the first marker line out of `text`, and with it the line breaks that then end the text. True when the line
/// gave both values; a malformed marker is removed all the same. A text without a marker stays untouched.
bool ExtractImageMarker(std::string& text, std::string& mimeType, std::string& data);
