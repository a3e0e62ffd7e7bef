#include <appserialization/MetadataToStructConverter.hpp>

#include <appserialization/ustring.hpp>
#include <foundation/Diagnostics.hpp>
#include <hvarray/Array.hpp>

#include <boost/variant.hpp>

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

namespace appserialization {

namespace {

using appmetadata::MetadataFieldEnum;
using matrix::ArrayPtr;
namespace api = matrix::detail::noninlined::hv_array_api;

ArrayPtr textArray(const ustring& text) {
    // As a view, which has a length: as a pointer, a text would end at its first zero.
    return matrix::adopt(api::hvCreateString_UTF16(std::u16string_view(text)));
}

// Here and in setField() an ArrayPtr keeps its reference until the setter has taken it over,
// because a setter that throws takes nothing.
ArrayPtr cellArray(const std::vector<ustring>& texts) {
    const std::array<std::size_t, 1> column = {texts.size()};
    const auto dimensions = texts.empty() ? matrix::Dimensions() : matrix::Dimensions(column);
    ArrayPtr cell = matrix::adopt(matrix::detail::do_create_cell(dimensions));
    for (std::size_t i = 0; i < texts.size(); ++i) {
        ArrayPtr element = textArray(texts[i]);
        api::hvSetCell(cell.get(), i, element.get());
        element.detach();  // the cell owns it now
    }
    return cell;
}

struct ValueToArray : boost::static_visitor<ArrayPtr> {
    ArrayPtr operator()(const appmetadata::OptionalString& text) const {
        return textArray(text.value_or(ustring()));
    }
    ArrayPtr operator()(const appmetadata::OptionalStringList& texts) const {
        return cellArray(texts.value_or(std::vector<ustring>()));
    }
};

const char* nameOf(MetadataFieldEnum field) {
    const auto number = static_cast<std::size_t>(field);
    if (number < appmetadata::kFieldNames.size()) return appmetadata::kFieldNames[number];
    foundation::core::diag::fatal("Should never get here", "MetadataToStructConverter", __LINE__,
                                  static_cast<const char*>(__PRETTY_FUNCTION__));
}

}  // namespace

class MetadataToStructConverter::MetadataToStructConverterImpl {
public:
    void convert(const AppMetadata& metadata, hvArray_tag* target) const {
        for (std::size_t number = 0; number < appmetadata::kFieldNames.size(); ++number) {
            const auto field = static_cast<MetadataFieldEnum>(number);
            setField(target, field, metadata.getFieldValue(field));
        }
    }

    void convert(const appmetadata::MetadataMap& metadata, hvArray_tag* target) const {
        for (const auto& [field, value] : metadata)
            setField(target, field, value);
    }

private:
    static void setField(hvArray_tag* target, MetadataFieldEnum field,
                         const appmetadata::MetadataPropertyVariant& value) {
        ArrayPtr array = boost::apply_visitor(ValueToArray(), value);
        api::hvSetField(target, 0, nameOf(field), array.get());
        array.detach();  // the struct owns it now
    }
};

MetadataToStructConverter::MetadataToStructConverter()
    : impl_(std::make_unique<MetadataToStructConverterImpl>()) {}
MetadataToStructConverter::~MetadataToStructConverter() = default;

void MetadataToStructConverter::convertAppMetadataToStruct(const AppMetadata& metadata,
                                                           hvArray_tag* target) const {
    impl_->convert(metadata, target);
}

void MetadataToStructConverter::convertMetadataMapToStruct(const appmetadata::MetadataMap& metadata,
                                                           hvArray_tag* target) const {
    impl_->convert(metadata, target);
}

}  // namespace appserialization
