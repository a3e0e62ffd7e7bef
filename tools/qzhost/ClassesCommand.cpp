#include "tools/qzhost/ClassesCommand.hpp"

#include <fmt/format.h>
#include <tarvo/Attributes.hpp>
#include <tarvo/COSClassInfo.hpp>
#include <tarvo/COSMethodInfo.hpp>
#include <tarvo/COSMethodSignature.hpp>
#include <tarvo/ClassSystem.hpp>
#include <tarvo/InternedString.hpp>
#include <tarvo/Namespace.hpp>

#include <nlohmann/json.hpp>

#include <utility>
#include <variant>

#include "tools/qzhost/StructText.hpp"

namespace qzhost {

namespace {

using nlohmann::ordered_json;

ordered_json toJson(const tarvo::AttributeValue& value) {
    if (const bool* const flag = std::get_if<bool>(&value)) return *flag;
    if (const int* const number = std::get_if<int>(&value)) return *number;
    const auto& text = std::get<tarvo::OptionalText>(value);
    return text ? ordered_json(*text) : ordered_json(nullptr);
}

template <class Info>
ordered_json attributesOf(const Info& info) {
    auto values = ordered_json::object();
    for (const auto& attribute : Info::attributes())
        values[attribute.name] = toJson(attribute.valueOf(info));
    return values;
}

ordered_json toJson(const tarvo::TypeNames& types) {
    auto names = ordered_json::array();
    for (const tarvo::InternedString type : types)
        names.push_back(type.str());
    return names;
}

ordered_json describe(const tarvo::COSMethodInfo& method) {
    const tarvo::COSMethodSignature& signature = method.getMethodSignature();
    return {{"name", method.getName().str()},
            {"inputs", toJson(signature.getInputs())},
            {"outputs", toJson(signature.getOutputs())},
            {"attributes", attributesOf(method)}};
}

ordered_json describe(const tarvo::COSClassInfo& info) {
    auto methods = ordered_json::array();
    for (const auto& method : info.getMethods())
        methods.push_back(describe(*method));
    return {{"name", info.getName().str()},
            {"fullName", info.getFullName().str()},
            {"description", info.getDescription()},
            {"attributes", attributesOf(info)},
            {"methods", std::move(methods)}};
}

ordered_json describe(const tarvo::factory::TarvoNamespace& toDescribe) {
    auto classes = ordered_json::array();
    for (const auto& info : toDescribe.getClasses())
        classes.push_back(describe(*info));
    return {{"name", toDescribe.getName().str()}, {"classes", std::move(classes)}};
}

ordered_json describeEverything() {
    auto namespaces = ordered_json::array();
    for (const std::string& name : tarvo::namespaceNames())
        namespaces.push_back(describe(*tarvo::findNamespace(name)));
    return {{"namespaces", std::move(namespaces)}};
}

// "uint8, char"
std::string joined(const ordered_json& names) {
    std::string text;
    for (const auto& name : names)
        text += (text.empty() ? "" : ", ") + name.get<std::string>();
    return text;
}

std::string textOf(const ordered_json& value) {
    if (value.is_null()) return "none";
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string attributeLines(const ordered_json& attributes, int indent) {
    std::string text;
    for (const auto& [name, value] : attributes.items())
        text += fmt::format("{:{}}{}: {}\n", "", indent, name, textOf(value));
    return text;
}

std::string methodText(const ordered_json& method) {
    return fmt::format("    method {}\n      ({}) -> ({})\n", textOf(method["name"]),
                       joined(method["inputs"]), joined(method["outputs"])) +
           attributeLines(method["attributes"], 8);
}

std::string classText(const ordered_json& info) {
    std::string text =
        fmt::format("  class {}\n    {}\n", textOf(info["fullName"]), textOf(info["description"]));
    text += attributeLines(info["attributes"], 6);
    for (const auto& method : info["methods"])
        text += methodText(method);
    return text;
}

}  // namespace

std::string listClassesAsJson() {
    return jsonText(describeEverything());
}

std::string listClasses() {
    const ordered_json everything = describeEverything();
    std::string text;
    for (const auto& described : everything["namespaces"]) {
        text += fmt::format("namespace {}\n", textOf(described["name"]));
        for (const auto& info : described["classes"])
            text += classText(info);
    }
    return text;
}

}  // namespace qzhost
