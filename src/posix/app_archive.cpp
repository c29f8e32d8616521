// App archives read through libzip: the directory and one capped entry, never the archive as a whole.
#include "posix/app_archive.h"

#include <sys/stat.h>
#include <zip.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "posix/plist_preferences.h"

namespace qv::posix {

namespace {

struct ArchiveCloser {
    void operator()(zip_t *archive) const { zip_discard(archive); }
};
using ArchiveOwner = std::unique_ptr<zip_t, ArchiveCloser>;

struct EntryCloser {
    void operator()(zip_file_t *entry) const { zip_fclose(entry); }
};
using EntryOwner = std::unique_ptr<zip_file_t, EntryCloser>;

Error broken(std::string detail) {
    return fail(ErrorCode::MalformedAppArchive, std::move(detail));
}

std::string zipErrorText(int code) {
    zip_error_t error;
    zip_error_init_with_code(&error, code);
    std::string text = zip_error_strerror(&error);
    zip_error_fini(&error);
    return text;
}

Error openFailure(int code) {
    if (code == ZIP_ER_NOZIP) {
        return broken("not a zip archive");
    }
    if (code == ZIP_ER_INCONS) {
        return broken("a damaged zip archive (" + zipErrorText(code) + ")");
    }
    return fail(ErrorCode::FileUnreadable, zipErrorText(code));
}

// The entry's bytes, at most kMaxMetadataBytes: the size the directory states is checked first, and the reading
// stops one byte past the cap in case the directory understates it.
Result<std::string> metadataEntry(zip_t *archive) {
    const zip_int64_t index = zip_name_locate(archive, std::string(kMetadataFileName).c_str(), 0);
    if (index < 0) {
        return broken("holds no " + std::string(kMetadataFileName));
    }
    const auto entryIndex = static_cast<zip_uint64_t>(index);
    zip_stat_t stat;
    zip_stat_init(&stat);
    if (zip_stat_index(archive, entryIndex, 0, &stat) != 0) {
        return broken(zip_strerror(archive));
    }
    if ((stat.valid & ZIP_STAT_SIZE) != 0 && stat.size > kMaxMetadataBytes) {
        return broken(std::string(kMetadataFileName) + " is larger than " + std::to_string(kMaxMetadataBytes) +
                      " bytes");
    }
    const EntryOwner entry(zip_fopen_index(archive, entryIndex, 0));
    if (!entry) {
        return broken(std::string(kMetadataFileName) + ": " + zip_strerror(archive));
    }
    std::string bytes(kMaxMetadataBytes + 1, '\0');
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const zip_int64_t read = zip_fread(entry.get(), bytes.data() + filled, bytes.size() - filled);
        if (read < 0) {
            return broken(std::string(kMetadataFileName) + ": " + zip_file_strerror(entry.get()));
        }
        if (read == 0) {
            break;
        }
        filled += static_cast<std::size_t>(read);
    }
    if (filled > kMaxMetadataBytes) {
        return broken(std::string(kMetadataFileName) + " inflates to more than " + std::to_string(kMaxMetadataBytes) +
                      " bytes");
    }
    bytes.resize(filled);
    return bytes;
}

} // namespace

Result<std::string> metadataBytesFromArchive(const std::string &path) {
    // The zip library opens whatever it is given; a FIFO would block it and a directory confuse it.
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return fail(ErrorCode::FileUnreadable, std::strerror(errno));
    }
    if (!S_ISREG(info.st_mode)) {
        return fail(ErrorCode::FileUnreadable, "not a regular file");
    }
    int code = 0;
    const ArchiveOwner archive(zip_open(path.c_str(), ZIP_RDONLY, &code));
    if (!archive) {
        return openFailure(code);
    }
    return metadataEntry(archive.get());
}

Result<std::string> metadataBytesFromArchiveBytes(std::string_view archiveBytes) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t *source = zip_source_buffer_create(archiveBytes.data(), archiveBytes.size(), 0, &error);
    if (source == nullptr) {
        const int code = zip_error_code_zip(&error);
        zip_error_fini(&error);
        return openFailure(code);
    }
    const ArchiveOwner archive(zip_open_from_source(source, ZIP_RDONLY, &error));
    if (!archive) {
        zip_source_free(source);
        const int code = zip_error_code_zip(&error);
        zip_error_fini(&error);
        return openFailure(code);
    }
    zip_error_fini(&error);
    return metadataEntry(archive.get());
}

Result<Value> readMetadata(std::string_view bytes) {
    auto dictionary = readPreferencesPropertyList(bytes);
    if (!dictionary) {
        return dictionary.error();
    }
    return Value(std::move(*dictionary));
}

} // namespace qv::posix
