#include "picture.h"

#include "figures.h"
#include "picturelayout.h"
#include "picturelinks.h"
#include "pictureway.h"
#include "svg.h"
#include "text.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

namespace KORV::Tool
{
namespace
{
constexpr float MARGIN = 28.0f; // around everything [pixels, as all below]
constexpr float HEADER = 64.0f; // title and subtitle
constexpr float PANEL_HEADING = 24.0f;
constexpr float PANEL_GAP = 22.0f;
constexpr float LEGEND_WIDTH = 250.0f;
constexpr float LEGEND_ROW = 21.0f;
constexpr float ARROW_LENGTH = 11.0f;
constexpr float ARROW_HEAD = 4.6f;
constexpr float ARROW_SPACING = 13.0f;
constexpr int SHADES = 24;

constexpr const char* STYLE =
    "<style>\n"
    "text{font-family:'DejaVu Sans','Helvetica Neue',Arial,sans-serif;fill:#333;font-size:12px}\n"
    ".title{font-size:20px;font-weight:600;fill:#222}.sub{fill:#666}.head{font-weight:600;fill:#444}\n"
    ".n path{stroke:#000;stroke-opacity:.22;stroke-linejoin:round}\n"
    ".edge{fill:none;stroke:#2b2b2b;stroke-width:1;stroke-linecap:round}\n"
    ".ghost{fill:none;stroke:#c9ced6;stroke-width:.8}\n"
    ".u{stroke:#c2185b}.d{stroke:#1a4fa3}.s{stroke:#444}\n"
    ".shaft{fill:none;stroke-width:1.1;stroke-linecap:round}.hu{fill:#c2185b}.hd{fill:#1a4fa3}\n"
    "</style>\n";

/// Tints of the surface types in the order of their ids, well apart for most eyes.
struct Tint
{
    float mHue;
    float mSaturation;
};
constexpr Tint TINTS[] = {{211, 0.40f}, {105, 0.30f}, {34, 0.45f}, {283, 0.28f},
                          {174, 0.36f}, {8, 0.45f},   {56, 0.42f}, {330, 0.38f}};

std::string text(float x, float y, const std::string& content, const std::string& attributes = "")
{
    return "<text x=\"" + pixels(x) + "\" y=\"" + pixels(y) + "\"" + (attributes.empty() ? "" : " " + attributes) +
           ">" + escaped(content) + "</text>\n";
}

std::string path(const SvgPath& data, const std::string& attributes)
{
    return data.empty() ? "" : "<path " + attributes + " d=\"" + data.data() + "\"/>\n";
}

/// Colours by surface type and height: dark is low, light is high.
class Shading
{
public:
    /// @param least  a smaller difference in height is noise, and gets one shade.
    Shading(const MeshFigures& figures, float lowest, float highest, float least)
        : mLowest(lowest), mRange(highest - lowest > least ? highest - lowest : 0.0f)
    {
        for (const auto& [id, surface] : figures.mSurfaces)
        {
            const std::size_t index = mTints.size();
            mTints[id] = TINTS[index % std::size(TINTS)];
        }
    }

    bool isFlat() const { return mRange == 0.0f; }

    int shadeOf(float height) const
    {
        const float part = mRange > 0.0f ? std::clamp((height - mLowest) / mRange, 0.0f, 1.0f) : 0.6f;
        return static_cast<int>(std::lround(part * (SHADES - 1)));
    }

    std::string fill(uint16 surface, int shade) const
    {
        const float part = static_cast<float>(shade) / (SHADES - 1);
        const Tint& tint = mTints.at(surface);
        return colour(tint.mHue, tint.mSaturation, 0.58f + 0.33f * part);
    }

private:
    float mLowest;
    float mRange;
    std::map<uint16, Tint> mTints;
};

/// A panel: one floor, on a ground that shows the outlines of those below.
class PanelPainter
{
public:
    PanelPainter(const MeshView& view, const PanelLayout& layout, const Shading& shading)
        : mView(view), mLayout(layout), mShading(shading)
    {
    }

    float x(const PlanPoint& point) const { return (point.mX - mLayout.mMinimum.mX) * mLayout.mScale; }
    float y(const PlanPoint& point) const { return (mLayout.mMaximum.mY - point.mY) * mLayout.mScale; }

    std::string nodes(const Floor& floor) const
    {
        std::map<std::pair<int, uint16>, SvgPath> paths; // one for each colour, low ones first
        for (const uint32 node : floor.mNodes)
        {
            const std::vector<PlanPoint> polygon = mView.corners(node);
            float height = 0.0f;
            for (const PlanPoint& corner : polygon)
                height += corner.mZ / static_cast<float>(polygon.size());
            append(paths[{mShading.shadeOf(height), mView.getMesh().mNodes[node].mSurfaceTypeID}], polygon);
        }
        std::string result = "<g class=\"n\" stroke-width=\"" + decimal(borderWidth(floor), 2) + "\">\n";
        for (const auto& [key, data] : paths)
            result += path(data, "fill=\"" + mShading.fill(key.second, key.first) + "\"");
        return result + "</g>\n";
    }

    /// The sides that lead nowhere.
    std::string edges(const Floor& floor, std::size_t index) const
    {
        SvgPath data;
        for (const uint32 node : floor.mNodes)
        {
            const auto& neighbours = mView.getMesh().mNodes[node].mNeighbours;
            const std::vector<PlanPoint> polygon = mView.corners(node);
            for (std::size_t side = 0; side < polygon.size() && side < neighbours.size(); ++side)
            {
                if (neighbours[side] >= 0)
                    continue;
                const PlanPoint& next = polygon[(side + 1) % polygon.size()];
                data.moveTo(x(polygon[side]), y(polygon[side]));
                data.lineTo(x(next), y(next));
            }
        }
        return path(data, "id=\"e" + std::to_string(index) + "\"");
    }

    std::string arrows(const std::vector<Arrow>& arrows, uint32 floor) const
    {
        SvgPath shafts[3]; // up, down, both ways
        SvgPath upHeads;
        SvgPath downHeads;
        for (const Arrow& arrow : arrows)
        {
            if (arrow.mFloor != floor)
                continue;
            const float dx = arrow.mOutX;
            const float dy = -arrow.mOutY; // y of a picture grows downwards
            const float cx = x(arrow.mCrossing);
            const float cy = y(arrow.mCrossing);
            const float half = ARROW_LENGTH * 0.5f;
            const bool back = arrow.mBackUp || arrow.mBackDown;
            SvgPath& shaft = shafts[back ? 2 : arrow.mUp ? 0 : 1];
            shaft.moveTo(cx - dx * half * (back ? 0.5f : 1.0f), cy - dy * half * (back ? 0.5f : 1.0f));
            shaft.lineTo(cx + dx * half * 0.5f, cy + dy * half * 0.5f);
            head(arrow.mUp ? upHeads : downHeads, cx + dx * half, cy + dy * half, dx, dy);
            if (back)
                head(arrow.mBackUp ? upHeads : downHeads, cx - dx * half, cy - dy * half, -dx, -dy);
        }
        return path(shafts[2], "class=\"shaft s\"") + path(shafts[0], "class=\"shaft u\"") +
               path(shafts[1], "class=\"shaft d\"") + path(upHeads, "class=\"hu\"") + path(downHeads, "class=\"hd\"");
    }

    /// A head with its tip at a place.
    static void head(SvgPath& data, float tipX, float tipY, float dx, float dy)
    {
        const float backX = tipX - dx * ARROW_HEAD;
        const float backY = tipY - dy * ARROW_HEAD;
        data.moveTo(tipX, tipY);
        data.lineTo(backX - dy * ARROW_HEAD * 0.5f, backY + dx * ARROW_HEAD * 0.5f);
        data.lineTo(backX + dy * ARROW_HEAD * 0.5f, backY - dx * ARROW_HEAD * 0.5f);
        data.close();
    }

private:
    /// Borders of small nodes are thin, or they would hide the colours.
    double borderWidth(const Floor& floor) const
    {
        double area = 0.0;
        for (const uint32 node : floor.mNodes)
            area += mView.area(node);
        const double side =
            std::sqrt(area / static_cast<double>(floor.mNodes.size())) * static_cast<double>(mLayout.mScale);
        return std::clamp(0.03 * side, 0.12, 0.5);
    }

    void append(SvgPath& data, const std::vector<PlanPoint>& polygon) const
    {
        for (std::size_t corner = 0; corner < polygon.size(); ++corner)
        {
            if (corner == 0)
                data.moveTo(x(polygon[corner]), y(polygon[corner]));
            else
                data.lineTo(x(polygon[corner]), y(polygon[corner]));
        }
        if (!polygon.empty())
            data.close();
    }

    const MeshView& mView;
    const PanelLayout& mLayout;
    const Shading& mShading;
};

std::string heightRange(float lowest, float highest)
{
    const std::string low = decimal(static_cast<double>(lowest), 2);
    const std::string high = decimal(static_cast<double>(highest), 2);
    return low == high ? low : low + " to " + high;
}

/// What a picture is made of.
struct Drawing
{
    Drawing(const NavMesh::NavMeshContainer& mesh, const NavMesh::NavMeshWay* way)
        : mView(mesh), mFigures(measure(mesh)), mLinks(mView.links()), mFloors(sortIntoFloors(mView, mLinks)),
          mLayout(layOutPanels(mView, mFloors.size())),
          mArrows(chooseArrows(mView, mLinks, mFloors, ARROW_SPACING / mLayout.mScale))
    {
        mLowest = mFloors.front().mLowest;
        mHighest = mFloors.front().mHighest;
        for (const Floor& floor : mFloors)
        {
            mLowest = std::min(mLowest, floor.mLowest);
            mHighest = std::max(mHighest, floor.mHighest);
        }
        if (way != nullptr)
            mWay = std::make_unique<PictureWay>(mView, mFloors, *way);
    }

    float panelX(std::size_t index) const
    {
        return MARGIN + static_cast<float>(static_cast<int>(index) % mLayout.mColumns) * (mLayout.mWidth + PANEL_GAP);
    }
    float panelY(std::size_t index) const
    {
        return MARGIN + HEADER + PANEL_HEADING +
               static_cast<float>(static_cast<int>(index) / mLayout.mColumns) *
                   (mLayout.mHeight + PANEL_HEADING + PANEL_GAP);
    }
    float legendX() const
    {
        return MARGIN + static_cast<float>(mLayout.mColumns) * (mLayout.mWidth + PANEL_GAP) + 8.0f;
    }

    MeshView mView;
    MeshFigures mFigures;
    std::vector<Link> mLinks;
    std::vector<Floor> mFloors;
    PanelLayout mLayout;
    std::vector<Arrow> mArrows;
    std::unique_ptr<PictureWay> mWay; ///< null for none
    float mLowest = 0.0f;
    float mHighest = 0.0f;
};

std::string paintPanels(const Drawing& drawing, const Shading& shading)
{
    const PanelPainter painter(drawing.mView, drawing.mLayout, shading);
    const std::string size =
        "width=\"" + pixels(drawing.mLayout.mWidth) + "\" height=\"" + pixels(drawing.mLayout.mHeight) + "\"";
    std::string result;
    for (std::size_t index = 0; index < drawing.mFloors.size(); ++index)
    {
        const Floor& floor = drawing.mFloors[index];
        const float left = drawing.panelX(index);
        const float top = drawing.panelY(index);
        std::string heading =
            drawing.mFloors.size() > 1 ? "Floor " + std::to_string(index + 1) + ", height " : "Height ";
        heading += heightRange(floor.mLowest, floor.mHighest) + ", " + counted(floor.mNodes.size(), "node");
        result += text(left, top - 8.0f, heading, "class=\"head\"");
        result += "<g transform=\"translate(" + pixels(left) + " " + pixels(top) + ")\">\n";
        result += "<rect " + size + " rx=\"4\" fill=\"#fff\" stroke=\"#dfe3e8\"/>\n";
        for (std::size_t below = 0; below < index; ++below)
            result += "<use href=\"#e" + std::to_string(below) + "\" class=\"ghost\"/>\n";
        result += painter.nodes(floor);
        result += "<g class=\"edge\">" + painter.edges(floor, index) + "</g>\n";
        result += painter.arrows(drawing.mArrows, static_cast<uint32>(index));
        if (drawing.mWay)
            result += drawing.mWay->paint(
                static_cast<uint32>(index), [&](const PlanPoint& point) { return painter.x(point); },
                [&](const PlanPoint& point) { return painter.y(point); });
        result += "</g>\n";
    }
    return result;
}

/// The column to the right, written from top to bottom.
class Legend
{
public:
    Legend(const Drawing& drawing, const Shading& shading)
        : mDrawing(drawing), mShading(shading), mX(drawing.legendX()), mY(MARGIN + HEADER + 10.0f)
    {
    }

    std::string paint()
    {
        surfaces();
        heights();
        links();
        way();
        scaleBar();
        axes();
        return mResult;
    }
    float bottom() const { return mY; }

private:
    void heading(const std::string& name)
    {
        mResult += text(mX, mY, name, "class=\"head\"");
        mY += LEGEND_ROW;
    }

    void surfaces()
    {
        heading("Surface types");
        for (const auto& [id, surface] : mDrawing.mFigures.mSurfaces)
        {
            if (surface.mNodes == 0)
                continue;
            mResult += "<rect x=\"" + pixels(mX) + "\" y=\"" + pixels(mY - 11) +
                       "\" width=\"26\" height=\"13\" rx=\"2\" fill=\"" + mShading.fill(id, SHADES * 2 / 3) +
                       "\" stroke=\"#000\" stroke-opacity=\".3\"/>\n";
            const std::string name = surface.mName.empty() ? "(no name)" : surface.mName;
            mResult += text(mX + 34, mY, shortened(name) + " (" + std::to_string(id) + ")");
            mY += LEGEND_ROW - 4;
            mResult += text(mX + 34, mY, counted(surface.mNodes, "node") + ", area " + groupedDecimal(surface.mArea, 1),
                            "class=\"sub\"");
            mY += LEGEND_ROW;
        }
        mY += 8;
    }

    /// Cut between characters: names may be in any script.
    static std::string shortened(const std::string& name)
    {
        constexpr std::size_t LONGEST = 26;
        if (name.size() <= LONGEST)
            return name;
        std::size_t end = LONGEST;
        while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80)
            --end;
        return name.substr(0, end) + "...";
    }

    void heights()
    {
        heading("Height");
        if (mShading.isFlat())
        {
            mResult += text(mX, mY, decimal(static_cast<double>(mDrawing.mLowest), 2) + " everywhere", "class=\"sub\"");
            mY += LEGEND_ROW + 8;
            return;
        }
        const uint16 surface = largestSurface();
        constexpr float WIDTH = 168.0f;
        for (int shade = 0; shade < SHADES; ++shade)
            mResult += "<rect x=\"" + pixels(mX + WIDTH * static_cast<float>(shade) / SHADES) + "\" y=\"" +
                       pixels(mY - 11) + "\" width=\"" + pixels(WIDTH / SHADES + 0.3f) + "\" height=\"13\" fill=\"" +
                       mShading.fill(surface, shade) + "\"/>\n";
        mY += LEGEND_ROW - 3;
        mResult += text(mX, mY, decimal(static_cast<double>(mDrawing.mLowest), 2), "class=\"sub\"");
        mResult += text(mX + WIDTH, mY, decimal(static_cast<double>(mDrawing.mHighest), 2),
                        "class=\"sub\" text-anchor=\"end\"");
        mY += LEGEND_ROW + 8;
    }

    uint16 largestSurface() const
    {
        uint16 largest = 0;
        double area = -1.0;
        for (const auto& [id, surface] : mDrawing.mFigures.mSurfaces)
        {
            if (surface.mArea <= area)
                continue;
            area = surface.mArea;
            largest = id;
        }
        return largest;
    }

    void linkRow(const std::string& caption, bool up, bool down)
    {
        SvgPath shaft;
        SvgPath upHead;
        SvgPath downHead;
        const float middle = mY - 4;
        shaft.moveTo(mX + 4, middle);
        shaft.lineTo(mX + 20, middle);
        if (up)
            PanelPainter::head(upHead, mX + 24, middle, 1, 0);
        if (down)
            PanelPainter::head(downHead, up ? mX : mX + 24, middle, up ? -1.0f : 1.0f, 0);
        mResult += path(shaft, up && down ? "class=\"shaft s\"" : up ? "class=\"shaft u\"" : "class=\"shaft d\"");
        mResult += path(upHead, "class=\"hu\"") + path(downHead, "class=\"hd\"");
        mResult += text(mX + 34, mY, caption);
        mY += LEGEND_ROW;
    }

    void links()
    {
        const LinkCounts& counts = mDrawing.mFigures.mLinks;
        heading("Links");
        linkRow("up: " + grouped(counts.mUp), true, false);
        linkRow("down: " + grouped(counts.mDown), false, true);
        linkRow("both, for one step", true, true);
        mResult += text(mX + 34, mY, "level: " + grouped(counts.mLevel) + " (not drawn)");
        mY += LEGEND_ROW;
        if (!mDrawing.mArrows.empty())
        {
            const std::string drawn = counted(mDrawing.mArrows.size(), "arrow") + " drawn; where there is no";
            mResult += text(mX, mY, drawn, "class=\"sub\"");
            mY += LEGEND_ROW - 5;
            mResult += text(mX, mY, "room for all, the highest", "class=\"sub\"");
            mY += LEGEND_ROW;
        }
        mResult += "<path class=\"edge\" d=\"M" + pixels(mX + 2) + " " + pixels(mY - 4) + "h22\"/>\n";
        mResult += text(mX + 34, mY, "edge of the mesh");
        mY += LEGEND_ROW + 8;
    }

    void way()
    {
        if (!mDrawing.mWay)
            return;
        heading("Way");
        const auto row = [this](const std::string& symbol, const std::string& caption)
        {
            mResult += symbol + text(mX + 34, mY, caption);
            mY += LEGEND_ROW;
        };
        const auto stroke = [this](const std::string& style)
        { return "<path class=\"way " + style + "\" d=\"M" + pixels(mX + 2) + " " + pixels(mY - 4) + "h22\"/>\n"; };
        row(PictureWay::marker(mX + 12, mY - 4, "ws"), "start");
        row(PictureWay::marker(mX + 12, mY - 4, "we"), "end");
        row(stroke("ww"), "walked");
        row(stroke("wj") + PictureWay::marker(mX + 13, mY - 4, "wm", PictureWay::HOP_RADIUS), "jumped or dropped");
        if (mDrawing.mFloors.size() > 1)
            row(stroke("wo"), "on another floor");
        mY += 8;
    }

    void scaleBar()
    {
        heading("Scale");
        const float wanted = 150.0f / mDrawing.mLayout.mScale;
        const float power = std::pow(10.0f, std::floor(std::log10(wanted)));
        const float length = wanted / power >= 5.0f ? 5.0f * power : wanted / power >= 2.0f ? 2.0f * power : power;
        const float width = length * mDrawing.mLayout.mScale;
        mResult += "<path fill=\"none\" stroke=\"#333\" stroke-width=\"1.4\" d=\"M" + pixels(mX) + " " +
                   pixels(mY - 10) + "v7h" + pixels(width) + "v-7M" + pixels(mX + width * 0.5f) + " " + pixels(mY - 3) +
                   "v-4\"/>\n";
        mY += LEGEND_ROW - 5;
        mResult += text(mX, mY, "0", "class=\"sub\"");
        mResult += text(mX + width, mY, groupedDecimal(static_cast<double>(length), 6),
                        "class=\"sub\" text-anchor=\"middle\"");
        mY += LEGEND_ROW + 14;
    }

    void axes()
    {
        SvgPath shafts;
        SvgPath heads;
        const float originX = mX + 6;
        const float originY = mY + 26;
        constexpr float LENGTH = 30.0f;
        shafts.moveTo(originX, originY - LENGTH);
        shafts.lineTo(originX, originY);
        shafts.lineTo(originX + LENGTH, originY);
        PanelPainter::head(heads, originX, originY - LENGTH - 3, 0, -1);
        PanelPainter::head(heads, originX + LENGTH + 3, originY, 1, 0);
        mResult += path(shafts, "class=\"shaft s\"") + path(heads, "fill=\"#444\"");
        mResult += text(originX + LENGTH + 10, originY + 4, mDrawing.mView.rightName());
        mResult += text(originX + 8, originY - LENGTH + 4, mDrawing.mView.topName());
        mY = originY + LEGEND_ROW;
    }

    const Drawing& mDrawing;
    const Shading& mShading;
    float mX;
    float mY;
    std::string mResult;
};

std::string subtitle(const Drawing& drawing)
{
    const NavMesh::NavMeshContainer& mesh = drawing.mView.getMesh();
    std::string line = counted(drawing.mFigures.mNodes, "node") + ", walkable area " +
                       groupedDecimal(drawing.mFigures.mArea, 1) + ", cube " + shortest(mesh.mCubeSize);
    for (const NavMesh::CharacterInfo& character : mesh.mCharacters)
        line += ", " + std::string(character.mName.data(), character.mName.size()) + " (" +
                shortest(character.mPhysicalHeight) + " high, jump " + shortest(character.mJumpHeight) + ", fall " +
                shortest(character.mFallHeight) + ")";
    return line;
}
} // namespace

std::string drawPicture(const NavMesh::NavMeshContainer& mesh, const std::string& title, const NavMesh::NavMeshWay* way)
{
    if (mesh.mNodes.empty())
        return "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"200\" height=\"60\"><text x=\"20\" y=\"35\">empty "
               "mesh</text></svg>\n";
    const Drawing drawing(mesh, way);
    const Shading shading(drawing.mFigures, drawing.mLowest, drawing.mHighest, 0.5f * mesh.mCubeSize);
    Legend legend(drawing, shading);
    const std::string legendText = legend.paint();
    const float panelBottom = drawing.panelY(drawing.mFloors.size() - 1) + drawing.mLayout.mHeight;
    const float width = drawing.legendX() + LEGEND_WIDTH + MARGIN;
    const float height = std::max(panelBottom, legend.bottom()) + MARGIN;

    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + pixels(width) + "\" height=\"" +
                      pixels(height) + "\" viewBox=\"0 0 " + pixels(width) + " " + pixels(height) + "\">\n";
    svg += STYLE + (way != nullptr ? "<style>\n" + std::string(PictureWay::STYLE) + "</style>\n" : "");
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"#f6f7f9\"/>\n";
    svg += text(MARGIN, MARGIN + 16, title, "class=\"title\"");
    svg += text(MARGIN, MARGIN + 38, subtitle(drawing), "class=\"sub\"");
    svg += paintPanels(drawing, shading);
    svg += legendText;
    return svg + "</svg>\n";
}
} // namespace KORV::Tool
