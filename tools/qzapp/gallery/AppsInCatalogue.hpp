#pragma once

#include "app/FileName.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/gallery/GalleryFolder.hpp"
#include "tools/qzapp/gallery/GalleryRecord.hpp"
#include "tools/qzapp/pictures/PictureScaler.hpp"

namespace qzapp {

// The apps of a catalogue, which somebody else may have made. No app is read: one that could not be
// read when it was indexed has a card or record with the reason. Pictures are those that the
// catalogue has. The functions that are returned throw Error if it is not a catalogue.
class AppsInCatalogue final : public GalleryApps {
public:
    // Lets the cage read the catalogue.
    AppsInCatalogue(FileName catalogue, Cage& cage);

    CardSource cards() const override;
    // Apps that were merged from another catalogue have no links: their paths are those of another
    // machine.
    RecordSource records(const GalleryFolder& folder,
                         pictures::PictureScaler& scaler) const override;

private:
    FileName catalogue_;
};

}  // namespace qzapp
