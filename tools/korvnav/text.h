#pragma once

#include <cstdint>
#include <string>

/// Numbers as text, independent of the locale.
namespace KORV::Tool
{
/// Shortest text that gives the same float again.
std::string shortest(float value);
/// Fixed notation with at most so many decimals; zeros at the end are left out.
std::string decimal(double value, int decimals);
/// A count with its thousands set apart by commas.
std::string grouped(std::uint64_t value);
/// As decimal, with the thousands set apart.
std::string groupedDecimal(double value, int decimals);
/// "1 node", "2 nodes".
std::string counted(std::uint64_t number, const std::string& what);
/// The double whose shortest text is that of the float: 1.8 and not 1.7999999523162842.
double asDouble(float value);

/// A line of a summary: a heading in a column of its own.
std::string entry(const std::string& heading, const std::string& text);

/// A line for a person on standard error, headed by the program's name.
void printWarning(const std::string& text);
void printError(const std::string& text);
} // namespace KORV::Tool
