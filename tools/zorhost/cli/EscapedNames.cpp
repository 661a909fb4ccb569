#include "EscapedNames.h"

namespace {

bool hasControl(const std::string& text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            return true;
    }
    return false;
}

}  // namespace

std::string EscapedNames::escaped(const std::string& text) {
    static const char hex[] = "0123456789abcdef";
    std::string out;
    for (const char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (c == '\n')
            out += "\\n";
        else if (c == '\t')
            out += "\\t";
        else if (u < 0x20 || u == 0x7f)
            out += std::string("\\x") + hex[u >> 4] + hex[u & 0xf];
        else
            out += c;
    }
    return out;
}

EscapedNames::EscapedNames(std::ostream& stream, const std::vector<std::string>& words)
    : stream_(stream) {
    for (const std::string& word : words) {
        if (hasControl(word))
            names_.push_back(word);
    }
    if (!names_.empty())
        original_ = stream_.rdbuf(this);
}

EscapedNames::~EscapedNames() {
    if (!original_)
        return;
    sync();
    if (!pending_.empty())
        original_->sputn(pending_.data(), static_cast<std::streamsize>(pending_.size()));
    original_->pubsync();
    stream_.rdbuf(original_);
}

EscapedNames::int_type EscapedNames::overflow(int_type c) {
    if (!traits_type::eq_int_type(c, traits_type::eof()))
        pending_ += traits_type::to_char_type(c);
    return traits_type::not_eof(c);
}

std::streamsize EscapedNames::xsputn(const char* text, std::streamsize size) {
    pending_.append(text, static_cast<size_t>(size));
    return size;
}

// Names are whole in what has been written (each goes out in one piece); once they are
// escaped, the line ends left are the lines' own, and whole lines go out.
int EscapedNames::sync() {
    for (const std::string& name : names_) {
        const std::string shown = escaped(name);
        for (size_t at = pending_.find(name); at != std::string::npos;
             at = pending_.find(name, at + shown.size()))
            pending_.replace(at, name.size(), shown);
    }
    const size_t end = pending_.rfind('\n');
    if (end == std::string::npos)
        return 0;
    std::string lines;
    for (size_t i = 0; i <= end; ++i) {
        const char c = pending_[i];
        lines += c == '\n' || c == '\r' ? std::string(1, c) : escaped(std::string(1, c));
    }
    pending_.erase(0, end + 1);
    original_->sputn(lines.data(), static_cast<std::streamsize>(lines.size()));
    return original_->pubsync();
}
