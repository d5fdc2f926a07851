#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace KORV::Benchmarks
{
/// A Markdown table with columns wide enough to be read as it is.
class Table
{
public:
    explicit Table(std::vector<std::string> heads) : mRows{std::move(heads)} {}
    /// @param cells  as many as there are heads.
    void add(std::vector<std::string> cells) { mRows.push_back(std::move(cells)); }
    bool empty() const { return mRows.size() < 2; }
    /// The first column is text, the others are figures.
    void print(std::ostream& out) const;

private:
    std::vector<std::vector<std::string>> mRows;
};

/// A number with three significant digits or all of its whole ones; "-" for one that is not finite.
std::string digits(double value);
std::string milliseconds(double seconds);
std::string megabytes(std::size_t bytes);
/// "0.75", or "-" when there is nothing to compare with.
std::string ratio(double ours, double theirs);
std::string grouped(std::size_t value);
} // namespace KORV::Benchmarks
