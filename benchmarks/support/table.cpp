#include "table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace KORV::Benchmarks
{
namespace
{
void printRow(std::ostream& out, const std::vector<std::string>& cells, const std::vector<std::size_t>& widths)
{
    for (std::size_t i = 0; i < cells.size(); ++i)
    {
        const std::string padding(widths[i] - cells[i].size(), ' ');
        out << "| " << (i == 0 ? cells[i] + padding : padding + cells[i]) << " ";
    }
    out << "|\n";
}
} // namespace

void Table::print(std::ostream& out) const
{
    std::vector<std::size_t> widths(mRows[0].size(), 3);
    for (const std::vector<std::string>& row : mRows)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    printRow(out, mRows[0], widths);
    for (std::size_t i = 0; i < widths.size(); ++i)
        out << "|" << std::string(widths[i] + 1, '-') << (i == 0 ? "-" : ":");
    out << "|\n";
    for (std::size_t row = 1; row < mRows.size(); ++row)
        printRow(out, mRows[row], widths);
}

std::string digits(double value)
{
    if (!std::isfinite(value))
        return "-";
    const int whole = value == 0.0 ? 1 : static_cast<int>(std::floor(std::log10(std::abs(value)))) + 1;
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", std::clamp(3 - whole, 0, 6), value);
    return text;
}

std::string milliseconds(double seconds)
{
    return digits(seconds * 1e3);
}

std::string megabytes(std::size_t bytes)
{
    return digits(static_cast<double>(bytes) / 1e6);
}

std::string ratio(double ours, double theirs)
{
    if (!(theirs > 0.0) || !std::isfinite(theirs) || !std::isfinite(ours))
        return "-";
    char text[64];
    std::snprintf(text, sizeof text, "%.2f", ours / theirs);
    return text;
}

std::string grouped(std::size_t value)
{
    std::string text = std::to_string(value);
    for (std::size_t at = text.size(); at > 3; at -= 3)
        text.insert(at - 3, ",");
    return text;
}
} // namespace KORV::Benchmarks
