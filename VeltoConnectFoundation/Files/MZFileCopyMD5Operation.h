#pragma once

#include <VeltoConnectFoundation/Codecs/MZMD5Context.h>
#include <VeltoConnectFoundation/Files/MZFileCopyOperation.h>

/// Copies one file and computes its MD5 in the same pass: the digest is of exactly the bytes that
/// were copied, holes as zeros. Reading and writing go on while the bytes before are digested.
///
/// As MZFileCopyOperation otherwise; a symbolic link is an error.
class VELTO_EXPORT MZFileCopyMD5Operation final : public MZFileCopyOperation {
public:
    MZFileCopyMD5Operation(velto::PassKey, std::string_view file, velto::Value fileSize);
    ~MZFileCopyMD5Operation() override;

    static std::shared_ptr<MZFileCopyMD5Operation> initWithFile(std::string_view path,
                                                                velto::Error& error);
    static std::shared_ptr<MZFileCopyMD5Operation> initWithFile(
        std::string_view path);  ///< Raises.

    /// 32 lower-case digits; none unless the last copy succeeded. A digest that fails is an error
    /// of the copy. On the thread of the copy.
    const std::optional<std::string>& md5() const { return md5_; }

protected:
    void prepare(velto::CopyFileObserver& observer) override;
    velto::Error finish(velto::Error error) override;

private:
    MZMD5Context context_;
    std::optional<std::string> md5_;
};
