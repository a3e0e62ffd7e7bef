#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/AppFolder.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/gallery/GalleryFolder.hpp"
#include "tools/qzapp/gallery/GalleryRecord.hpp"
#include "tools/qzapp/pictures/PictureScaler.hpp"

namespace qzapp {

// The apps of the folders and files that a command line names. Several threads read them, and
// memory holds only a few at a time. What cannot be read has a card or record with the reason, and
// is complained about.
class AppsInFiles final : public GalleryApps {
public:
    // Lets the cage read them. Throws Error if one that is named cannot be opened.
    AppsInFiles(const std::vector<std::string>& names, Complain complain, Cage& cage);

    CardSource cards() const override;
    RecordSource records(const GalleryFolder& folder,
                         pictures::PictureScaler& scaler) const override;

private:
    // A file that may be an app: one that was found in a folder, or one that was named. A gap has
    // no name.
    struct File {
        std::string name, shown;
        bool isListed;
    };
    // What could not be looked at in a folder.
    struct Gap {
        std::string name, shown, reason;
    };
    struct ReadApp;

    static ReadApp read(const File& file);
    template <class Result>
    void forEach(const std::function<Result(const File&, const ReadApp&)>& make,
                 const std::function<void(const Result&)>& take) const;

    Complain complain_;
    std::vector<File> files_;
    std::vector<Gap> gaps_;
};

}  // namespace qzapp
