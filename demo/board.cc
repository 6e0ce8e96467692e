#include "board.h"

#include <cmath>
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb/stb_easy_font.h>
#include <stb/stb_image_write.h>

namespace {

using Colour = std::array<double, 4>;  ///< red, green and blue up to 255, and how much it covers, up to 1
constexpr Colour Paper{250, 249, 245, 1}, Ink{38, 50, 66, 1}, Mask{22, 92, 68, 1}, MaskEdge{186, 158, 88, 1},
    Body{46, 50, 56, 1}, BodyEdge{120, 128, 136, 1}, Label{246, 246, 242, 1}, Pad{222, 190, 112, 1},
    Chosen{208, 64, 24, 1}, Glow{255, 200, 60, 0.2}, LivePad{92, 220, 255, 1};
constexpr double BoardMargin = 30, PointsPerMillimetre = 5, FarthestPlace = 5000, TextTop = 425, LineAdvance = 12;
constexpr double MostPixelsPerPoint = 2, FewestPixelsPerPoint = 0.25, LetterHeight = 9, GlowSize = 9;

/// A picture of an area of a page; three bytes for each pixel, row by row.
struct Canvas {
    Box area;
    double scale;  ///< pixels per point
    int width = int((area[Right] - area[Left]) * scale), height = int((area[Bottom] - area[Top]) * scale);
    std::vector<std::uint8_t> pixels = std::vector<std::uint8_t>(static_cast<std::size_t>(width * height) * 3);
};

/// Paints a box of the page with round corners, as far as it lies in the picture. A pixel at the edge is covered by as
/// much of it as lies inside.
void Paint(Canvas& canvas, Box box, const Colour& colour, double corner = 0) {
    for (std::size_t edge = 0; edge < 4; ++edge) box[edge] = (box[edge] - canvas.area[edge % 2]) * canvas.scale;
    const double radius = std::max(corner * canvas.scale, 0.5);
    const int left = int(std::clamp(box[Left], 0.0, double(canvas.width)));
    const int top = int(std::clamp(box[Top], 0.0, double(canvas.height)));
    for (int y = top; y < std::min(box[Bottom] + 1, double(canvas.height)); ++y) {
        for (int x = left; x < std::min(box[Right] + 1, double(canvas.width)); ++x) {
            const double beyondX = std::max({box[Left] + radius - x - 0.5, x + 0.5 - box[Right] + radius, 0.0});
            const double beyondY = std::max({box[Top] + radius - y - 0.5, y + 0.5 - box[Bottom] + radius, 0.0});
            const double cover = std::clamp(radius + 0.5 - std::hypot(beyondX, beyondY), 0.0, 1.0) * colour[3];
            for (std::size_t i = 0, at = static_cast<std::size_t>(y * canvas.width + x) * 3; i < 3; ++i) {
                std::uint8_t& value = canvas.pixels[at + i];
                value = static_cast<std::uint8_t>(std::lround(value + (colour[i] - value) * cover));
            }
        }
    }
}

/// A word at its place, in the letters that the font has. Very long ones are cut.
Word WordAt(double left, double top, const std::string& text) {
    std::string letters = text.substr(0, 200);
    for (char& letter : letters) letter = letter < ' ' || letter > '~' ? '?' : letter;
    return {{left, top, left + stb_easy_font_width(letters.data()), top + LetterHeight}, letters};
}

void Write(Canvas& canvas, Word word, const Colour& colour) {
    constexpr std::size_t strokeFloats = 16;  // four corners of x, y and two that don't matter
    std::vector<float> strokes(word.text.size() * 32 * strokeFloats);
    int count = stb_easy_font_print(float(word.box[Left]), float(word.box[Top]), word.text.data(), nullptr,
                                    strokes.data(), static_cast<int>(strokes.size() * sizeof(float)));
    for (const float* at = strokes.data(); count > 0; --count, at += strokeFloats) {
        Paint(canvas, {at[0], at[1], at[8], at[9]}, colour);
    }
}

/// Where a box of a record lies on a page. The numbers of a damaged file stay out of the arithmetic elsewhere.
Box OnPage(const json& millimetres) {
    Box box = millimetres.get<Box>();
    for (double& edge : box) edge = BoardMargin + std::clamp(edge, -FarthestPlace, FarthestPlace) * PointsPerMillimetre;
    return box;
}

Word LabelOf(const json& part) {
    const std::string name = part.at("name");
    const Box body = OnPage(part.at("body")), label = WordAt(0, 0, name).box;
    const double left = (body[Left] + body[Right] - label[Right]) / 2,
                 top = (body[Top] + body[Bottom] - LetterHeight) / 2;
    return WordAt(std::round(left), std::round(top) + 1, name);
}

void DrawPart(Canvas& canvas, const json& part, bool chosen, const std::string& net) {
    const Box body = OnPage(part.at("body"));
    for (double size = GlowSize; chosen && size > 0; --size) Paint(canvas, Grown(body, size), Glow, size);
    Paint(canvas, Grown(body, 0.5), chosen ? Paper : BodyEdge, 2);
    Paint(canvas, body, chosen ? Chosen : Body, 1.5);
    for (const json& pin : part.at("pins")) {
        const bool live = Is(pin, "net", net);
        Paint(canvas, Grown(OnPage(pin.at("pad")), live ? 1.5 : 0), live ? LivePad : Pad, live ? 2 : 0);
    }
    Paint(canvas, Grown(LabelOf(part).box, 0.5), chosen ? Chosen : Body, 1);  // pads don't blur the letters
    Write(canvas, LabelOf(part), Label);
}

}  // namespace

json LoadBoard(const std::filesystem::path& path) try {
    // What the file left out. A text or a box of another type throws.
    const auto complete = [](json& record, const Strings& texts, const char* box = nullptr) {
        for (const std::string& key : texts) record[key] = record.value(key, "");
        if (box) record[box] = record.value(box, Box{});
    };
    json board = json::parse(LoadBytes(path));
    complete(board, {"name", "schematic"});
    board["outline"] = board.value("outline", std::vector<Box>());
    for (json& net : board["nets"]) complete(net, {"name", "info", "note", "no_connect"});
    for (json& part : board["components"]) {
        complete(part, {"name", "side", "package", "info", "display_info", "note"}, "body");
        for (json& pin : part["pins"]) complete(pin, {"number", "name", "net"}, "pad");
    }
    return board;
} catch (const json::exception&) {
    throw Refusal(PathText(path) + " is not a board file.");
}

bool Is(const json& record, const char* key, const std::string& text) {
    return !text.empty() && Lower(record.at(key)) == Lower(text);
}

std::vector<Word> WordsOf(const json& board, const Page& page) {
    std::vector<Word> words;
    for (const json& part : board.at("components")) {
        if (part.at("side") == page.side) words.push_back(LabelOf(part));
    }
    double top = TextTop;
    for (const std::string& line : SplitAt(page.text, '\n')) {
        double left = BoardMargin;
        for (const std::string& text : SplitAt(OneLine(line), ' ')) {
            if (!text.empty()) words.push_back(WordAt(left, top, text));
            left = WordAt(left, top, text + " ").box[Right];
        }
        top += LineAdvance;
    }
    return words;
}

Box Grown(const Box& box, double by) {
    return {box[Left] - by, box[Top] - by, box[Right] + by, box[Bottom] + by};
}

std::string DrawPage(const json& board, const Page& page, const Box& area, const json* chosen, const std::string& net,
                     std::size_t byteLimit) {
    const auto append = [](void* png, void* bytes, int size) {
        static_cast<std::string*>(png)->append(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
    };
    for (double scale = MostPixelsPerPoint; scale >= FewestPixelsPerPoint; scale /= 2) {
        Canvas canvas{area, scale};
        Paint(canvas, Grown(area, 2), Paper);
        for (const json& box : board.at("outline")) Paint(canvas, Grown(OnPage(box), 1.5), MaskEdge, 11.5);
        for (const json& box : board.at("outline")) Paint(canvas, OnPage(box), Mask, 10);
        for (const Word& word : WordsOf(board, page)) Write(canvas, word, Ink);
        for (const bool last : {false, true}) {  // the chosen part's glow lies over its neighbours
            for (const json& part : board.at("components")) {
                if (part.at("side") == page.side && (&part == chosen) == last) DrawPart(canvas, part, last, net);
            }
        }
        std::string png;
        stbi_write_png_to_func(append, &png, canvas.width, canvas.height, 3, canvas.pixels.data(), 0);
        if (!png.empty() && (byteLimit == 0 || (png.size() + 2) / 3 * 4 <= byteLimit)) return png;
    }
    return {};
}
