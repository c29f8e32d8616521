// App archives and metadata for tests: zips written with libzip, and metadata shaped as the store writes it,
// account details included, so that tests can prove those never leave.
#pragma once

#include <zip.h>

#include <string>
#include <utility>
#include <vector>

namespace qv::test {

// What the store's metadata carries about the buyer; none of it may ever appear in a report.
inline const std::vector<std::string> kAccountSecrets = {
    "buyer@example.com", "Jane", "Appleseed", "8765432109", "com.apple.iTunesStore.downloadInfo", "appleId"};

// An iTunesMetadata.plist in XML: one version with a display text, every listed id, and the buyer's account.
inline std::string metadataPlist(const std::string &itemId, const std::string &shortVersion,
                                 const std::string &currentId, const std::vector<std::string> &listedIds) {
    std::string ids;
    for (const std::string &id : listedIds) {
        ids += "<integer>" + id + "</integer>";
    }
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
<key>appleId</key><string>buyer@example.com</string>
<key>com.apple.iTunesStore.downloadInfo</key><dict>
  <key>accountInfo</key><dict>
    <key>AppleID</key><string>buyer@example.com</string>
    <key>DSPersonID</key><integer>8765432109</integer>
    <key>FirstName</key><string>Jane</string>
    <key>LastName</key><string>Appleseed</string>
  </dict>
  <key>purchaseDate</key><string>2020-01-01T00:00:00Z</string>
</dict>
<key>userName</key><string>Jane Appleseed</string>
<key>bundleShortVersionString</key><string>)" +
           shortVersion + R"(</string>
<key>bundleVersion</key><string>1200</string>
<key>itemId</key><integer>)" +
           itemId + R"(</integer>
<key>itemName</key><string>Example Notes</string>
<key>softwareVersionBundleId</key><string>com.example.notes</string>
<key>softwareVersionExternalIdentifier</key><integer>)" +
           currentId + R"(</integer>
<key>softwareVersionExternalIdentifiers</key><array>)" +
           ids + R"(</array>
</dict></plist>
)";
}

// Writes a zip holding the named entries; false when libzip refused.
inline bool writeZip(const std::string &path, const std::vector<std::pair<std::string, std::string>> &entries) {
    int error = 0;
    zip_t *archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (archive == nullptr) {
        return false;
    }
    for (const auto &[name, bytes] : entries) {
        zip_source_t *source = zip_source_buffer(archive, bytes.data(), bytes.size(), 0);
        if (source == nullptr || zip_file_add(archive, name.c_str(), source, ZIP_FL_OVERWRITE) < 0) {
            zip_source_free(source);
            zip_discard(archive);
            return false;
        }
    }
    // The buffers must live until here: libzip reads them when it writes the archive.
    return zip_close(archive) == 0;
}

} // namespace qv::test
