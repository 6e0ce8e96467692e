#include "picture.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

/// The colours of a picture: what a pixel holds is the place of its colour in the palette.
enum Colour : std::uint8_t { Paper, Ink, Laminate, Body, BodyEdge, Label, Pad, Chosen, ChosenEdge };
constexpr std::uint8_t Palette[][3] = {{250, 249, 244}, {38, 50, 66},   {28, 94, 72},  {44, 48, 54},  {110, 118, 126},
                                       {240, 240, 236}, {212, 172, 86}, {226, 84, 42}, {255, 214, 64}};

constexpr double MostPixelsPerPoint = 2, FewestPixelsPerPoint = 0.25;
constexpr double EdgeSize = 0.5, ChosenEdgeSize = 2.5;  ///< points
constexpr std::size_t LongestBlock = 0xFFFF;            ///< of a zlib stream

/// The characters from blank to underscore: 7 rows of 5 bits, the top row in the highest bits, its left column first.
constexpr std::uint64_t Letters[] = {
    0x0,         0x3A2111004, 0x3A2111004, 0x295F57D4A, 0x3A2111004, 0x674222173, 0x3A2111004, 0x108800000,
    0x088842082, 0x208210888, 0x02AEFBAA0, 0x0084F9080, 0x000003088, 0x000070000, 0x00000018C, 0x042222210,
    0x3A33AE62E, 0x11942109F, 0x3A213221F, 0x78217043E, 0x08CA97C42, 0x7E1E0862E, 0x1910F462E, 0x7C2221084,
    0x3A317462E, 0x3A317844C, 0x018C03180, 0x3A2111004, 0x3A2111004, 0x001F07C00, 0x208208888, 0x3A2111004,
    0x3A2111004, 0x11518FE31, 0x7A31F463E, 0x3A308422E, 0x72518C65C, 0x7E10F421F, 0x7E10F4210, 0x3A30BC62F,
    0x4631FC631, 0x38842108E, 0x1C4210A4C, 0x4654C5251, 0x42108421F, 0x4775AC631, 0x4739ACE71, 0x3A318C62E,
    0x7A31F4210, 0x3A318D64D, 0x7A31F5251, 0x3E107043E, 0x7C8421084, 0x46318C62E, 0x463152884, 0x4631AD771,
    0x462A22A31, 0x462A21084, 0x7C222221F, 0x3A2111004, 0x3A2111004, 0x3A2111004, 0x3A2111004, 0x00000001F,
};

/// A picture of an area of a page; one byte, a Colour, for each pixel, row by row.
struct Canvas {
    Box area;
    double pixelsPerPoint;
    int width, height;
    std::string pixels;
};

int Pixel(double points, double pixelsPerPoint, int limit) {
    return static_cast<int>(std::clamp(std::round(points * pixelsPerPoint), 0.0, double(limit)));
}

/// Paints a box of the page, as far as it lies in the picture.
void Fill(Canvas& canvas, const Box& box, Colour colour) {
    const int left = Pixel(box.left - canvas.area.left, canvas.pixelsPerPoint, canvas.width);
    const int right = Pixel(box.right - canvas.area.left, canvas.pixelsPerPoint, canvas.width);
    const int bottom = Pixel(box.bottom - canvas.area.top, canvas.pixelsPerPoint, canvas.height);
    for (int y = Pixel(box.top - canvas.area.top, canvas.pixelsPerPoint, canvas.height); y < bottom; ++y) {
        const auto row = canvas.pixels.begin() + std::ptrdiff_t(y) * canvas.width;
        if (left < right) std::fill(row + left, row + right, static_cast<char>(colour));
    }
}

void Write(Canvas& canvas, const Word& word, Colour colour) {
    double left = word.box.left;
    for (char letter : word.text) {
        if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
        const std::uint64_t dots = Letters[(letter < ' ' || letter > '_' ? '?' : letter) - ' '];
        for (int dot = 0; dot < LetterColumns * LetterRows; ++dot) {
            const double x = left + dot % LetterColumns, y = word.box.top + dot / LetterColumns;
            if (dots >> (LetterColumns * LetterRows - 1 - dot) & 1) Fill(canvas, {x, y, x + 1, y + 1}, colour);
        }
        left += LetterAdvance;
    }
}

void DrawPart(Canvas& canvas, const Component& part, bool chosen) {
    const Box body = OnPage(part.body);
    Fill(canvas, Grown(body, chosen ? ChosenEdgeSize : EdgeSize), chosen ? ChosenEdge : BodyEdge);
    Fill(canvas, body, chosen ? Chosen : Body);
    for (const Pin& pin : part.pins) Fill(canvas, OnPage(pin.pad), Pad);
    Write(canvas, LabelOf(part), Label);
}

void PutBigEndian(std::string& out, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(value >> shift);
}

/// A zlib stream of the bytes as they are.
std::string Zlib(std::string_view bytes) {
    std::string stream = "\x78\x01";
    std::uint32_t low = 1, high = 0;
    for (const char byte : bytes) {
        low = (low + static_cast<unsigned char>(byte)) % 65521;
        high = (high + low) % 65521;
    }
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), LongestBlock))) {
        const std::size_t size = std::min(bytes.size(), LongestBlock);
        stream += size == bytes.size() ? '\1' : '\0';
        for (const std::size_t number : {size, ~size}) stream += {char(number), char(number >> 8)};
        stream += bytes.substr(0, size);
    }
    PutBigEndian(stream, high << 16 | low);
    return stream;
}

std::uint32_t Crc32(std::string_view bytes) {
    std::uint32_t crc = ~0U;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320U : 0);
    }
    return ~crc;
}

void AppendChunk(std::string& png, std::string_view type, std::string_view data) {
    PutBigEndian(png, static_cast<std::uint32_t>(data.size()));
    const std::string body = std::string(type) + std::string(data);
    png += body;
    PutBigEndian(png, Crc32(body));
}

std::string EncodePng(const Canvas& canvas) {
    std::string header, colours, rows;
    PutBigEndian(header, static_cast<std::uint32_t>(canvas.width));
    PutBigEndian(header, static_cast<std::uint32_t>(canvas.height));
    header += {4, 3, 0, 0, 0};  // 4 bits a pixel, a palette, no interlacing
    for (const auto& [red, green, blue] : Palette) colours += {char(red), char(green), char(blue)};
    for (std::size_t at = 0; at < canvas.pixels.size(); at += 2) {
        if (at % static_cast<std::size_t>(canvas.width) == 0) rows += '\0';  // the row follows as it is
        rows += static_cast<char>(canvas.pixels[at] << 4 | canvas.pixels[at + 1]);
    }
    std::string png = "\x89PNG\r\n\x1A\n";
    AppendChunk(png, "IHDR", header);
    AppendChunk(png, "PLTE", colours);
    AppendChunk(png, "IDAT", Zlib(rows));
    AppendChunk(png, "IEND", "");
    return png;
}

}  // namespace

std::string DrawPage(const Board& board, const Page& page, const Box& area, const Component* chosen,
                     std::size_t byteLimit) {
    for (double scale = MostPixelsPerPoint; scale >= FewestPixelsPerPoint; scale /= 2) {
        const int width = static_cast<int>((area.right - area.left) * scale / 2) * 2;  // two pixels share a byte
        const int height = static_cast<int>((area.bottom - area.top) * scale);
        Canvas canvas{area, scale, width, height, std::string(std::size_t(width * height), Paper)};
        for (const Box& box : board.outline) Fill(canvas, OnPage(box), Laminate);
        for (const Word& word : WordsOf(board, page)) Write(canvas, word, Ink);
        for (const Component& part : board.components) {
            if (part.side == page.side) DrawPart(canvas, part, &part == chosen);
        }
        std::string png = EncodePng(canvas);
        if (byteLimit == 0 || (png.size() + 2) / 3 * 4 <= byteLimit) return png;
    }
    return {};
}

std::string Base64(std::string_view bytes) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    unsigned held = 0, count = 0;
    for (const char byte : bytes) {
        held = held << 8 | static_cast<unsigned char>(byte);
        for (count += 8; count >= 6; count -= 6) text += digits[held >> (count - 6) & 63];
    }
    if (count > 0) text += digits[held << (6 - count) & 63];
    return text.append((4 - text.size() % 4) % 4, '=');
}
