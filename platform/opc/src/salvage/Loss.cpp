#include "platform/opc/src/salvage/Loss.hpp"

#include <algorithm>
#include <iterator>

namespace opc::zip {

namespace {

struct LossRow {
    Loss loss;
    const char* text;
};
constexpr LossRow kLosses[] = {
    {Loss::SameName, "there is another item of this name"},
    {Loss::Twice, "there are several of this name, and no directory says which counts"},
    {Loss::Unsure,
     "it follows a damaged place and may belong to a zip file that an item contained"},
    {Loss::NotListed, "the directory does not list it"},
    {Loss::Version, "it is of another version than the directory says"},
    {Loss::DirectoryStart, "it may have listed further items, in front of those that it lists now"},
    {Loss::Within, "it belongs to a zip file inside this one"},
    {Loss::Cut, "the file ends before its data does"},
    {Loss::Overlap, "its bytes belong to another item"},
    {Loss::IsFolder, "another item is in a folder of its name"},
    {Loss::InItem, "it is in a folder that has the name of another item"},
    {Loss::Header, "its header is damaged"},
    {Loss::AllBehind,
     "its header is damaged, and what follows it may belong to a zip file that it contained"},
    {Loss::NotTried, "not tried, because the file holds too many damaged items"},
    {Loss::Encrypted, "it is encrypted"},
    {Loss::NoEnd, "the end of its data cannot be determined"},
    {Loss::TwoSizes, "it declares two different sizes"},
};

}  // namespace

std::string textOf(Loss loss, const std::string& detail) {
    const auto* const found = std::ranges::find(kLosses, loss, &LossRow::loss);
    return found == std::end(kLosses) ? detail : found->text;
}

}  // namespace opc::zip
