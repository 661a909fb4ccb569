#include "zorTerrain/DtMetaFlightText.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kelZor {
namespace metaflight {

const char* const openFailed = "MetaFlight Parsing Error : Unable to open file descriptor\n";
const char* const fileEmpty = "MetaFlight Parsing Error : File is empty.\n";

namespace {

// Deleted from the raw text in this order; of two where one contains the other, the
// longer stands first.
struct Prefix {
    const char* text;
    size_t length;
};
template <size_t N>
constexpr Prefix prefix(const char (&text)[N]) {
    return {text, N - 1};
}
constexpr Prefix namespacePrefixes[] = {
    prefix("MetaFlight:"),        prefix("Ellipsoid:"),
    prefix("CoordSysType::"),     prefix("GridStructure::"),
    prefix("Coverage::"),         prefix("SwitchDistanceTable::"),
    prefix("SwitchDistance::"),   prefix("NonProjectedCoordSys::"),
    prefix("ProjectedCoordSys::")};

// An open file descriptor, closed with its owner.
class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

// The first occurrence of `literal` in [from, end), found by its last byte: the
// prefixes all end in ':', which is rare in XML text, so memchr hops between candidates.
// Ordering candidates by their end orders them by their start, so this is the leftmost.
const char* findLiteral(const char* from, const char* end, const char* literal, size_t length) {
    const char last = literal[length - 1];
    for (const char* at = from + length - 1; at < end;) {
        const char* hit =
            static_cast<const char*>(std::memchr(at, last, static_cast<size_t>(end - at)));
        if (!hit)
            return nullptr;
        const char* start = hit - (length - 1);
        if (std::memcmp(start, literal, length - 1) == 0)
            return start;
        at = hit + 1;
    }
    return nullptr;
}

// Deletes every occurrence of `literal` in place, never searching the text behind a
// deletion again; answers the new size. One linear pass.
size_t deleteAll(char* text, size_t size, const char* literal, size_t length) {
    const char* read = text;
    const char* end = text + size;
    char* write = text;
    while (true) {
        const char* found = findLiteral(read, end, literal, length);
        const char* stop = found ? found : end;
        if (write != read)
            std::memmove(write, read, static_cast<size_t>(stop - read));
        write += stop - read;
        if (!found)
            break;
        read = found + length;
    }
    return static_cast<size_t>(write - text);
}

// Deleting each prefix in turn over the whole text, as the format defines it.
size_t deleteEachInTurn(char* text, size_t size) {
    for (const Prefix& prefix : namespacePrefixes)
        size = deleteAll(text, size, prefix.text, prefix.length);
    return size;
}

bool isPrefixByte(char c) {
    return c == ':' || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The prefixes one left-to-right pass meets: at each ':' the first prefix, in deletion
// order, whose text ends there and starts after the last one met. The text may arrive
// in pieces; each scan goes on where the last stopped.
class PrefixScanner {
public:
    explicit PrefixScanner(const char* text) : afterLast_(text), at_(text) {}

    // Calls `onMatch(start, length)` for each prefix whose ':' lies before `end`; stops
    // and answers false as soon as onMatch does.
    template <typename OnMatch>
    bool scan(const char* end, OnMatch onMatch) {
        while (at_ < end) {
            const char* colon =
                static_cast<const char*>(std::memchr(at_, ':', static_cast<size_t>(end - at_)));
            if (!colon) {
                at_ = end;
                return true;
            }
            at_ = colon + 1;
            if (const Prefix* prefix = prefixEndingAt(colon)) {
                if (!onMatch(at_ - prefix->length, prefix->length))
                    return false;
                afterLast_ = at_;
            }
        }
        return true;
    }

private:
    const Prefix* prefixEndingAt(const char* colon) const {
        const size_t room = static_cast<size_t>(colon - afterLast_) + 1;
        for (const Prefix& prefix : namespacePrefixes) {
            // The byte before the ':' turns most candidates away without a call.
            if (room < prefix.length || colon[-1] != prefix.text[prefix.length - 2])
                continue;
            if (std::memcmp(colon + 1 - prefix.length, prefix.text, prefix.length - 2) == 0)
                return &prefix;
        }
        return nullptr;
    }

    const char* afterLast_;
    const char* at_;
};

// Whether a prefix the pass meets may be deleted together with the others: when it
// stands behind a byte that no prefix holds ('<', '/', '"', a space: every real
// document), no deletion can join two pieces of text into a new prefix, so deleting all
// at once leaves what deleting each in turn does.
bool deletableInOnePass(const char* text, const char* start) {
    return start == text || !isPrefixByte(start[-1]);
}

// Deletes every prefix in one pass, in place, taking the text as it arrives.
class OnePassDeletion {
public:
    explicit OnePassDeletion(char* text) : text_(text), write_(text), kept_(text), scanner_(text) {}

    // Takes the text up to `end`, which only grows from call to call. False, the text
    // spoilt, at the first prefix one pass cannot delete exactly; the byte before a
    // prefix is still as it came when it is looked at (the pass writes only behind what
    // it has read).
    bool takeUpTo(const char* end) {
        return scanner_.scan(end, [this](const char* start, size_t length) {
            if (!deletableInOnePass(text_, start))
                return false;
            std::memmove(write_, kept_, static_cast<size_t>(start - kept_));
            write_ += start - kept_;
            kept_ = start + length;
            return true;
        });
    }

    // Closes the text at `end`; answers its new size.
    size_t finish(const char* end) {
        std::memmove(write_, kept_, static_cast<size_t>(end - kept_));
        return static_cast<size_t>(write_ - text_) + static_cast<size_t>(end - kept_);
    }

private:
    char* text_;
    char* write_;
    const char* kept_;  // the first byte taken and not yet written
    PrefixScanner scanner_;
};

// Small enough that a piece is still in the cache when it is looked at.
constexpr size_t pieceBytes = 64 * 1024;

// Reads [0, size) of the file into `buffer`, calling `onPiece(begin, end)` with each
// piece as it comes in; stops early when onPiece answers false. Answers the bytes read:
// a file that shrank while read ends where it ended.
template <typename OnPiece>
size_t readPieces(int file, char* buffer, size_t size, OnPiece onPiece) {
    size_t done = 0;
    while (done < size) {
        const ssize_t got =
            pread(file, buffer + done, std::min(pieceBytes, size - done), static_cast<off_t>(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        const size_t begin = done;
        done += static_cast<size_t>(got);
        if (!onPiece(buffer + begin, buffer + done))
            break;
    }
    return done;
}

}  // namespace

// Each piece is cleaned as soon as it is read; a text that one pass cannot clean exactly
// is read again and cleaned prefix by prefix.
bool readDocumentText(const std::string& path, TextBuffer& contents, std::string& errorMessage) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat info;
    if (file.get() < 0 || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        // A directory or a device may open, but holds no document.
        errorMessage = openFailed;
        return false;
    }
    if (info.st_size == 0) {
        errorMessage = fileEmpty;
        return false;
    }
    const size_t size = static_cast<size_t>(info.st_size);
    if (!contents.allocate(size)) {
        errorMessage = openFailed;
        return false;
    }
    char* text = contents.data();
    OnePassDeletion deletion(text);
    const char* zero = nullptr;
    bool exact = true;
    const size_t read = readPieces(file.get(), text, size, [&](char* begin, char* end) {
        zero = static_cast<const char*>(std::memchr(begin, '\0', static_cast<size_t>(end - begin)));
        exact = deletion.takeUpTo(zero ? zero : end);
        return exact && !zero;
    });
    if (exact) {
        contents.resize(deletion.finish(zero ? zero : text + read));
        return true;
    }
    const size_t again = readPieces(file.get(), text, size, [](char*, char*) { return true; });
    zero = static_cast<const char*>(std::memchr(text, '\0', again));
    contents.resize(deleteEachInTurn(text, zero ? static_cast<size_t>(zero - text) : again));
    return true;
}

size_t deletePrefixes(char* text, size_t size) {
    char* end = text + size;
    const bool onePassIsExact = PrefixScanner(text).scan(
        end, [text](const char* start, size_t) { return deletableInOnePass(text, start); });
    if (!onePassIsExact)
        return deleteEachInTurn(text, size);
    OnePassDeletion deletion(text);
    deletion.takeUpTo(end);
    return deletion.finish(end);
}

}  // namespace metaflight
}  // namespace kelZor
