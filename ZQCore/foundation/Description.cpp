#include "ZQCore/foundation/Description.h"

namespace zq {

std::string arrayDescription(const std::vector<std::string>& elements)
{
    std::string text = "(\n";
    for (std::size_t i = 0; i < elements.size(); ++i) {
        text += "    ";
        text += elements[i];
        if (i + 1 < elements.size())
            text += ',';
        text += '\n';
    }
    text += ')';
    return text;
}

std::string describe(const std::optional<std::string>& text) { return text ? *text : std::string("(null)"); }

} // namespace zq
