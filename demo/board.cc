#include "viewer.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb/stb_easy_font.h>
#include <stb/stb_image_write.h>

namespace {

using Colour = std::array<std::uint8_t, 3>;
constexpr Colour Ink{38, 50, 66}, Mask{22, 92, 68}, MaskEdge{186, 158, 88}, Body{46, 50, 56}, Label{246, 246, 242},
    Pad{222, 190, 112}, Chosen{208, 64, 24}, Halo{255, 200, 60}, LivePad{92, 220, 255};
constexpr double BoardMargin = 30, PointsPerMillimetre = 5, FarthestPlace = 5000, TextTop = 425, LineAdvance = 12;
constexpr double MostPixelsPerPoint = 2, FewestPixelsPerPoint = 0.25, LetterHeight = 9;

/// A picture of an area of a page; three bytes for each pixel, row by row. White to begin with.
struct Canvas {
    Box area;
    double scale;  ///< pixels per point
    int width = int((area[Right] - area[Left]) * scale), height = int((area[Bottom] - area[Top]) * scale);
    double painted = 0;  ///< pixels, including those painted over
    std::vector<std::uint8_t> pixels = std::vector<std::uint8_t>(static_cast<std::size_t>(width * height) * 3, 252);
};

/// Paints a box of the page, clipped to the picture.
void Paint(Canvas& canvas, Box box, const Colour& colour) {
    for (std::size_t edge = 0; edge < 4; ++edge) {
        const double pixels = (box[edge] - canvas.area[edge % 2]) * canvas.scale;
        box[edge] = std::clamp(std::round(pixels), 0.0, double(edge % 2 ? canvas.height : canvas.width));
    }
    canvas.painted += std::abs((box[Right] - box[Left]) * (box[Bottom] - box[Top]));
    if (canvas.painted > 1e9) throw Refusal("There is too much to draw on this page.");
    for (int y = int(box[Top]); y < int(box[Bottom]); ++y)
        for (int x = int(box[Left]); x < int(box[Right]); ++x)
            std::ranges::copy(colour, &canvas.pixels[static_cast<std::size_t>(y * canvas.width + x) * 3]);
}

/// A word at its place, with letters that the font lacks replaced. Very long words are cut.
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
    for (const float* at = strokes.data(); count > 0; --count, at += strokeFloats)
        Paint(canvas, {at[0], at[1], at[8], at[9]}, colour);
}

/// Where a record's box is on a page. Clamps the numbers of a damaged file.
Box OnPage(const json& millimetres) {
    Box box = millimetres.get<Box>();
    for (double& edge : box) edge = BoardMargin + std::clamp(edge, -FarthestPlace, FarthestPlace) * PointsPerMillimetre;
    return box;
}

/// The name of a part, centred on its body.
Word LabelOf(const json& part) {
    const Box body = OnPage(part.at("body")), label = WordAt(0, 0, part.at("name")).box;
    return WordAt(std::round((body[Left] + body[Right] - label[Right]) / 2),
                  std::round((body[Top] + body[Bottom] - LetterHeight) / 2) + 1, part.at("name"));
}

void DrawPart(Canvas& canvas, const json& part, bool chosen, const std::string& net) {
    const Box body = OnPage(part.at("body"));
    if (chosen) Paint(canvas, Grown(body, 5), Halo);
    Paint(canvas, body, chosen ? Chosen : Body);
    for (const json& pin : part.at("pins")) Paint(canvas, OnPage(pin.at("pad")), Is(pin, "net", net) ? LivePad : Pad);
    Paint(canvas, Grown(LabelOf(part).box, 0.5), chosen ? Chosen : Body);  // keeps pads off the letters
    Write(canvas, LabelOf(part), Label);
}

}  // namespace

Viewer OpenBoard(const fs::path& file) try {
    // What the file leaves out becomes empty, and each text one line. A value of the wrong type throws.
    const auto complete = [](json& record, const Strings& texts, const char* box = nullptr) {
        for (const std::string& key : texts) record[key] = OneLine(record.value(key, ""));
        if (box) record[box] = record.value(box, Box{});
    };
    Viewer viewer;
    viewer.boardPath = (fs::current_path() / file).lexically_normal();
    // Drop what is nested deeper than a pad's numbers: deep nesting could exhaust the stack.
    const auto isShallow = [](int depth, json::parse_event_t, json&) { return depth < 8; };
    json& board = viewer.board = json::parse(LoadBytes(viewer.boardPath), isShallow);
    complete(board, {"name", "schematic"});
    board["outline"] = board.value("outline", std::vector<Box>());
    for (json& net : board["nets"]) complete(net, {"name", "info", "note", "no_connect"});
    for (json& part : board["components"]) {
        complete(part, {"name", "side", "package", "info", "display_info", "note"}, "body");
        for (json& pin : part["pins"]) complete(pin, {"number", "name", "net"}, "pad");
    }
    // Only a file directly beside the board, whatever the board says.
    const fs::path drawing = viewer.boardPath.parent_path() / PathOf(board["schematic"]).filename();
    std::error_code failure;
    if (drawing.extension() == ".sch" && fs::exists(drawing, failure)) viewer.schematicPath = drawing;
    return viewer;
} catch (const json::exception&) {
    throw Refusal(PathText(file) + " is not a board file.");
}

std::vector<Word> WordsOf(const json& board, const Page& page) {
    std::vector<Word> words;
    for (const json& part : board.at("components"))
        if (part.at("side") == page.side) words.push_back(LabelOf(part));
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

std::string DrawPage(const Viewer& viewer, const Page& page, Box area, const std::string& chosen, std::size_t limit) {
    const auto append = [](void* png, void* bytes, int size) {
        static_cast<std::string*>(png)->append(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
    };
    for (double scale = MostPixelsPerPoint; scale >= FewestPixelsPerPoint; scale /= 2) {
        Canvas canvas{area, scale};
        for (const json& box : viewer.board.at("outline")) Paint(canvas, Grown(OnPage(box), 1.5), MaskEdge);
        for (const json& box : viewer.board.at("outline")) Paint(canvas, OnPage(box), Mask);
        for (const Word& word : WordsOf(viewer.board, page)) Write(canvas, word, Ink);
        for (const json& part : viewer.board.at("components"))
            if (part.at("side") == page.side) DrawPart(canvas, part, Is(part, "name", chosen), viewer.selectedNet);
        std::string png;
        stbi_write_png_to_func(append, &png, canvas.width, canvas.height, 3, canvas.pixels.data(), 0);
        if (!png.empty() && (limit == 0 || (png.size() + 2) / 3 * 4 <= limit)) return png;
    }
    throw Refusal("The picture would be larger than " + std::to_string(limit) + " bytes.");
}
