#pragma once

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Option.hpp>

#include <string>

namespace qzapp {

// The help of the tool and its verbs, fitted to the terminal's width. What does not go to a
// terminal has no line broken.
//
// In a footer, lines that are not indented are the sentences of a paragraph, wherever they are
// broken; a blank line or a colon at the end of a line ends it. "  NAME  What it is", with two
// blanks or more between, is laid out like an option. Other indented lines stay as they are.
class HelpText : public CLI::Formatter {
public:
    HelpText();
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_description(const CLI::App* app) const override;
    std::string make_footer(const CLI::App* app) const override;
    std::string make_subcommand(const CLI::App* verb) const override;
    std::string make_option(const CLI::Option* option, bool isPositional) const override;
};

}  // namespace qzapp
