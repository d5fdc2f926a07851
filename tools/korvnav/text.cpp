#include "text.h"

#include <charconv>
#include <cmath>
#include <iostream>

namespace KORV::Tool
{
std::string shortest(float value)
{
    char digits[64];
    return {digits, std::to_chars(digits, digits + sizeof digits, value).ptr};
}

std::string decimal(double value, int decimals)
{
    char digits[400]; // the largest double has 309 digits before the point
    std::string text(digits,
                     std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, decimals).ptr);
    if (text.find('.') != std::string::npos)
    {
        text.erase(text.find_last_not_of('0') + 1);
        if (text.back() == '.')
            text.pop_back();
    }
    return text == "-0" ? "0" : text;
}

std::string grouped(std::uint64_t value)
{
    std::string text = std::to_string(value);
    for (std::size_t at = text.size(); at > 3;)
    {
        at -= 3;
        text.insert(at, 1, ',');
    }
    return text;
}

std::string groupedDecimal(double value, int decimals)
{
    std::string text = decimal(value, decimals);
    if (!(value >= 0.0 && value < 1e18))
        return text;
    const std::size_t point = text.find('.');
    const std::string whole = grouped(std::stoull(text.substr(0, point)));
    return point == std::string::npos ? whole : whole + text.substr(point);
}

std::string counted(std::uint64_t number, const std::string& what)
{
    return grouped(number) + " " + what + (number == 1 ? "" : "s");
}

double asDouble(float value)
{
    const std::string text = shortest(value);
    double result = static_cast<double>(value);
    std::from_chars(text.data(), text.data() + text.size(), result);
    return result;
}

std::string entry(const std::string& heading, const std::string& text)
{
    return "  " + heading + std::string(heading.size() < 11 ? 12 - heading.size() : 1, ' ') + text + "\n";
}

void printWarning(const std::string& text)
{
    std::cerr << "korvnav: warning: " << text << std::endl;
}

void printError(const std::string& text)
{
    std::cerr << "korvnav: error: " << text << std::endl;
}
} // namespace KORV::Tool
