#include "TextNumbers.h"

#include <cstdio>

namespace {

std::string fixed(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    std::string result(text);
    if (result.find('.') != std::string::npos) {
        result.erase(result.find_last_not_of('0') + 1);
        if (result.back() == '.')
            result.pop_back();
    }
    return result == "-0" ? "0" : result;
}

}  // namespace

std::string metresText(double metres) {
    return fixed(metres, 3);
}

std::string degreesText(double degrees) {
    return fixed(degrees, 9);
}

std::string metresText(double x, double y, double z) {
    return metresText(x) + " " + metresText(y) + " " + metresText(z);
}
