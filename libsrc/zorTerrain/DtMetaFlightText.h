// Reading a MetaFlight document's text and deleting the format's namespace prefixes
// from it, the first step of every load.
//
// A file is read in pieces and each piece cleaned as it arrives, in one left-to-right
// pass; where one pass would differ from deleting each prefix in turn over the whole
// text (the format's definition), the file is read again and cleaned prefix by prefix.
//
// Internal to the plug-in; not installed.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>

namespace kelZor {
namespace metaflight {

extern const char* const openFailed;
extern const char* const fileEmpty;

// A document's text, left unzeroed since the file fills it. From the heap: pages of its
// own would be faulted in afresh on every load, where the heap's are reused (the parser
// asks for a large block right after anyway, so the heap is tidied either way).
class TextBuffer {
public:
    bool allocate(size_t bytes) {
        data_.reset(static_cast<char*>(std::malloc(bytes)));
        capacity_ = data_ ? bytes : 0;
        return data_ != nullptr;
    }
    char* data() { return data_.get(); }
    size_t size() const { return size_; }
    void resize(size_t bytes) { size_ = bytes < capacity_ ? bytes : capacity_; }

private:
    struct Free {
        void operator()(char* text) const { std::free(text); }
    };
    std::unique_ptr<char, Free> data_;
    size_t capacity_ = 0;
    size_t size_ = 0;
};

// The file's text up to its first zero byte with the prefixes deleted, or false with the
// loader's message.
bool readDocumentText(const std::string& path, TextBuffer& contents, std::string& errorMessage);

// Deletes the prefixes from `text` in place, as deleting each in turn would; answers the
// new size.
size_t deletePrefixes(char* text, size_t size);

}  // namespace metaflight
}  // namespace kelZor
