#pragma once

#include <VelmDrovan/Files.h>
#include <VelmDrovan/Package.h>

#include <functional>
#include <set>
#include <string>

namespace sandbox {

/// One package's folder in the store: STORE/PROVIDER/VENDOR_ID.velmp. While the object lives no
/// other process can deliver the same package.
class StoreFolder {
public:
    /// Makes the folder. Throws a Failure when it cannot, or when another delivery is under way.
    explicit StoreFolder(const Package& package);

    /// The package's name in the store.
    const std::string& name() const { return name_; }

    std::uint64_t freeBytes() const;

    /// Whether the store holds the file with its size and MD5; reads it to know.
    bool holds(const DataFile& file) const;

    /// Copies a file under a temporary name and gives it its own at the end. `advanced` is told
    /// the bytes of each block and may answer false to break off; the answer is then false and
    /// nothing is left. Throws a Failure.
    bool receive(const std::string& source,
                 const DataFile& file,
                 std::size_t blockSize,
                 const std::function<bool(std::uint64_t)>& advanced) const;

    /// Removes what an earlier delivery left and this one does not name.
    void keepOnly(const std::set<std::string>& names) const;

private:
    std::string path_;
    std::string name_;
    Descriptor lock_;
};

}  // namespace sandbox
