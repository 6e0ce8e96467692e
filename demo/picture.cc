#include "picture.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <utility>

namespace {

struct Rgb {
    std::uint8_t red, green, blue;
};

// clang-format off
/// The colours of a picture: what a pixel holds is the place of its colour in the palette.
enum Colour : std::uint8_t { Paper, Ink, Faint, Laminate, Edge, Body, BodyEdge, Label, Pad, FirstPad, Chosen,
                             ChosenEdge, Wire, Hit };
constexpr Rgb Palette[] = {{250, 249, 244}, {38, 50, 66}, {205, 208, 205}, {28, 94, 72}, {14, 56, 44}, {44, 48, 54},
                           {110, 118, 126}, {240, 240, 236}, {212, 172, 86}, {246, 232, 190}, {226, 84, 42},
                           {255, 214, 64}, {120, 214, 255}, {204, 30, 90}};
// clang-format on
static_assert(std::size(Palette) == Hit + 1);

constexpr int SmallestWidth = 120;
constexpr unsigned LongestRun = 258;  ///< of deflate
constexpr double PadSize = 0.6;       ///< millimetres
constexpr int LetterColumns = 5, LetterRows = 7;
constexpr double SmallestDot = 0.8;  ///< pixels; below it a word is drawn as a bar

struct Letter {
    char letter;
    std::uint64_t rows;  ///< 7 rows of 5 bits, the top row in the highest bits, its left column first
};

// Sorted. Lower case is drawn as upper case.
constexpr Letter Letters[] = {
    {'#', 0x295F57D4A}, {'%', 0x674222173}, {'\'', 0x108800000}, {'(', 0x088842082}, {')', 0x208210888},
    {'*', 0x02AEFBAA0}, {'+', 0x0084F9080}, {',', 0x000003088},  {'-', 0x000070000}, {'.', 0x00000018C},
    {'/', 0x042222210}, {'0', 0x3A33AE62E}, {'1', 0x11942109F},  {'2', 0x3A213221F}, {'3', 0x78217043E},
    {'4', 0x08CA97C42}, {'5', 0x7E1E0862E}, {'6', 0x1910F462E},  {'7', 0x7C2221084}, {'8', 0x3A317462E},
    {'9', 0x3A317844C}, {':', 0x018C03180}, {'=', 0x001F07C00},  {'>', 0x208208888}, {'?', 0x3A2111004},
    {'A', 0x11518FE31}, {'B', 0x7A31F463E}, {'C', 0x3A308422E},  {'D', 0x72518C65C}, {'E', 0x7E10F421F},
    {'F', 0x7E10F4210}, {'G', 0x3A30BC62F}, {'H', 0x4631FC631},  {'I', 0x38842108E}, {'J', 0x1C4210A4C},
    {'K', 0x4654C5251}, {'L', 0x42108421F}, {'M', 0x4775AC631},  {'N', 0x4739ACE71}, {'O', 0x3A318C62E},
    {'P', 0x7A31F4210}, {'Q', 0x3A318D64D}, {'R', 0x7A31F5251},  {'S', 0x3E107043E}, {'T', 0x7C8421084},
    {'U', 0x46318C62E}, {'V', 0x463152884}, {'W', 0x4631AD771},  {'X', 0x462A22A31}, {'Y', 0x462A21084},
    {'Z', 0x7C222221F}, {'_', 0x00000001F},
};

/// One byte, a Colour, for each pixel, row by row.
struct Canvas {
    int width, height;
    std::string pixels;
};

/// From points on the page to pixels.
struct Scale {
    Point origin;
    double factor;

    Box operator()(const Box& box) const {
        return {(box.left - origin.x) * factor, (box.top - origin.y) * factor, (box.right - origin.x) * factor,
                (box.bottom - origin.y) * factor};
    }
};

int Pixel(double place, int limit) {
    return static_cast<int>(std::clamp(std::round(place), 0.0, double(limit)));
}

void Fill(Canvas& canvas, const Box& box, Colour colour) {
    const int left = Pixel(box.left, canvas.width), right = Pixel(box.right, canvas.width);
    const int bottom = Pixel(box.bottom, canvas.height);
    for (int y = Pixel(box.top, canvas.height); y < bottom; ++y) {
        if (left >= right) return;
        const auto row = canvas.pixels.begin() + std::ptrdiff_t(y) * canvas.width;
        std::fill(row + left, row + right, static_cast<char>(colour));
    }
}

/// A frame of `thickness` pixels around the outside of the box.
void Frame(Canvas& canvas, const Box& box, double thickness, Colour colour) {
    const Box outer = Grown(box, thickness);
    Fill(canvas, {outer.left, outer.top, outer.right, box.top}, colour);
    Fill(canvas, {outer.left, box.bottom, outer.right, outer.bottom}, colour);
    Fill(canvas, {outer.left, outer.top, box.left, outer.bottom}, colour);
    Fill(canvas, {box.right, outer.top, outer.right, outer.bottom}, colour);
}

void Line(Canvas& canvas, Point from, Point to, double thickness, Colour colour) {
    const double length = std::max({std::abs(to.x - from.x), std::abs(to.y - from.y), 1.0});
    for (double step = 0; step <= length; ++step) {
        const double x = from.x + (to.x - from.x) * step / length, y = from.y + (to.y - from.y) * step / length;
        Fill(canvas, Grown({x, y, x, y}, thickness / 2), colour);
    }
}

/// Row by row, between each odd and the next even crossing of the row's middle with an edge.
void FillPolygon(Canvas& canvas, const std::vector<Point>& corners, Colour colour) {
    for (int y = 0; y < canvas.height; ++y) {
        const double middle = y + 0.5;
        std::vector<double> crossings;
        for (std::size_t i = 0; i < corners.size(); ++i) {
            const Point a = corners[i], b = corners[(i + 1) % corners.size()];
            if ((a.y <= middle) != (b.y <= middle)) {
                crossings.push_back(a.x + (middle - a.y) * (b.x - a.x) / (b.y - a.y));
            }
        }
        std::sort(crossings.begin(), crossings.end());
        for (std::size_t i = 0; i + 1 < crossings.size(); i += 2) {
            Fill(canvas, {crossings[i], double(y), crossings[i + 1], double(y) + 1}, colour);
        }
    }
}

std::uint64_t RowsOf(char letter) {
    if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
    for (const Letter& known : Letters) {
        if (known.letter == letter) return known.rows;
    }
    return letter == ' ' ? 0 : RowsOf('?');
}

/// Writes the word into its box, left to right and as high as the box.
void Write(Canvas& canvas, std::string_view word, const Box& box, Colour colour) {
    const double dot = (box.bottom - box.top) / LetterRows;
    if (dot < SmallestDot) return Frame(canvas, Grown(box, -dot * LetterRows * 0.4), 0.5, Faint);
    double x = box.left;
    for (const char letter : word) {
        const std::uint64_t rows = RowsOf(letter);
        for (int bit = 0; bit < LetterColumns * LetterRows; ++bit) {
            if (!(rows >> (LetterColumns * LetterRows - 1 - bit) & 1)) continue;
            const double left = x + bit % LetterColumns * dot, top = box.top + bit / LetterColumns * dot;
            Fill(canvas, {left, top, left + dot, top + dot}, colour);
        }
        x += dot * (LetterColumns + 1);
    }
}

// ---- PNG ---------------------------------------------------------------------------------------------------------

/// Packs bits from the lowest bit of each byte on, as the deflate format wants them.
struct BitWriter {
    std::string bytes;
    unsigned held = 0, count = 0;

    void Put(unsigned value, unsigned bits) {
        held |= value << count;
        for (count += bits; count >= 8; count -= 8, held >>= 8) bytes += static_cast<char>(held);
    }
    /// A Huffman code, whose highest bit goes first.
    void PutCode(unsigned code, unsigned bits) {
        while (bits-- > 0) Put(code >> bits & 1, 1);
    }
    /// A literal byte or a length, in the code that is fixed for all files.
    void PutSymbol(unsigned symbol) {
        if (symbol < 144) return PutCode(0x30 + symbol, 8);
        if (symbol < 256) return PutCode(0x190 + symbol - 144, 9);
        if (symbol < 280) return PutCode(symbol - 256, 7);
        PutCode(0xC0 + symbol - 280, 8);
    }
    /// "The last byte again", 3 to 258 times.
    void PutRun(unsigned length) {
        const unsigned rest = length - 3;
        const unsigned extra = rest < 8 ? 0 : static_cast<unsigned>(std::bit_width(rest)) - 3;
        PutSymbol(length == LongestRun ? 285 : 257 + 4 * extra + (rest >> extra));
        if (length < LongestRun) Put(rest & ((1U << extra) - 1), extra);
        PutCode(0, 5);  // the distance 1
    }
};

void PutBigEndian(std::string& out, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(value >> shift);
}

/// A zlib stream that knows one trick, runs of one byte. Rows filtered against the row above are mostly such runs.
std::string Deflate(std::string_view bytes) {
    BitWriter out{"\x78\x01"};
    out.Put(1, 1);  // the last block
    out.Put(1, 2);  // with the fixed codes
    std::uint32_t low = 1, high = 0;
    for (const char byte : bytes) {
        low = (low + static_cast<unsigned char>(byte)) % 65521;
        high = (high + low) % 65521;
    }
    for (std::size_t at = 0; at < bytes.size();) {
        out.PutSymbol(static_cast<unsigned char>(bytes[at]));
        std::size_t run = std::min(bytes.find_first_not_of(bytes[at], at), bytes.size()) - at - 1;
        at += run + 1;
        for (; run >= LongestRun; run -= LongestRun) out.PutRun(LongestRun);
        if (run >= 3) out.PutRun(static_cast<unsigned>(std::exchange(run, 0)));
        at -= run;
    }
    out.PutSymbol(256);
    out.Put(0, 7);  // fills the last byte
    PutBigEndian(out.bytes, high << 16 | low);
    return out.bytes;
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
    header += {8, 3, 0, 0, 0};  // 8 bits a pixel, a palette, no interlacing
    for (const Rgb& colour : Palette) colours += {char(colour.red), char(colour.green), char(colour.blue)};
    const auto width = static_cast<std::size_t>(canvas.width);
    for (std::size_t at = 0; at < canvas.pixels.size(); ++at) {
        if (at % width == 0) rows += char(2);  // each byte of the row is the difference from the one above it
        rows += static_cast<char>(canvas.pixels[at] - (at < width ? 0 : canvas.pixels[at - width]));
    }
    std::string png = "\x89PNG\r\n\x1A\n";
    AppendChunk(png, "IHDR", header);
    AppendChunk(png, "PLTE", colours);
    AppendChunk(png, "IDAT", Deflate(rows));
    AppendChunk(png, "IEND", "");
    return png;
}

}  // namespace

std::string DrawPage(const Board& board, const Page& page, const Box& part, const Highlights& highlights, int width) {
    const Scale scale{{part.left, part.top}, width / (part.right - part.left)};
    const int height = std::max(1, static_cast<int>(std::lround((part.bottom - part.top) * scale.factor)));
    Canvas canvas{width, height, std::string(std::size_t(width) * std::size_t(height), char(Paper))};
    const double stroke = std::max(1.0, std::round(scale.factor * 0.6));
    const auto place = [&](Point at) {
        const Point point = OnPage(board, page, at);
        const Box pixels = scale(Box{point.x, point.y, point.x, point.y});
        return Point{pixels.left, pixels.top};
    };

    Frame(canvas, scale(Box{14, 14, page.size.x - 14, page.size.y - 14}), stroke, Faint);
    std::vector<Point> corners;
    for (const Point& corner : board.outline) corners.push_back(place(corner));
    FillPolygon(canvas, corners, Laminate);
    for (std::size_t i = 0; i < corners.size(); ++i) {
        Line(canvas, corners[i], corners[(i + 1) % corners.size()], stroke * 2, Edge);
    }

    std::vector<Point> wire;
    for (const Component& component : board.components) {
        if (component.side != page.side) continue;
        const bool chosen = component.refdes == highlights.refdes;
        const Box body = scale(OnPage(board, page, component));
        Fill(canvas, body, chosen ? Chosen : Body);
        Frame(canvas, body, stroke, BodyEdge);
        if (chosen) Frame(canvas, Grown(body, stroke * 2), stroke * 2, ChosenEdge);
        const double pad = std::max(1.0, PadSize / 2 * page.scale * scale.factor);
        for (const Pin& pin : component.pins) {
            const Point at = place(pin.at);
            const bool onNet = !highlights.net.empty() && pin.net == highlights.net;
            if (onNet) wire.push_back(at);
            const bool first = &pin == component.pins.data() && component.pins.size() > 2;
            Fill(canvas, Grown({at.x, at.y, at.x, at.y}, pad), onNet ? Wire : first ? FirstPad : Pad);
        }
    }
    for (std::size_t i = 1; i < wire.size(); ++i) Line(canvas, wire[i - 1], wire[i], stroke, Wire);
    for (const PageWord& word : WordsOf(board, page)) {
        Write(canvas, word.text, scale(word.box), word.label ? Label : Ink);
    }
    for (const Box& hit : highlights.boxes) Frame(canvas, Grown(scale(hit), stroke * 2), stroke, Hit);
    return EncodePng(canvas);
}

std::optional<std::string> DrawWithin(const Board& board, const Page& page, const Box& part,
                                      const Highlights& highlights, int width, std::size_t byteLimit) {
    for (; width >= SmallestWidth; width = width * 3 / 4) {
        std::string png = DrawPage(board, page, part, highlights, width);
        if (byteLimit == 0 || (png.size() + 2) / 3 * 4 <= byteLimit) return png;
    }
    return std::nullopt;
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
