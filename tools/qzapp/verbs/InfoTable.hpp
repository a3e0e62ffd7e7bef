#pragma once

#include <CLI/App.hpp>
#include <appserialization/AppMetadata.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <appserialization/ustring.hpp>

#include <optional>
#include <string>
#include <vector>

#include "app/FieldValues.hpp"
#include "tools/qzapp/cli/ForEachApp.hpp"

namespace qzapp {

// What a table shows about an app.
struct TableApp {
    std::string file, form;
    appserialization::AppMetadata record;
    appserialization::ScreenshotSize screenshot;
};

// The options of a verb that may print a table of apps.
struct TableOptions {
    bool usual = false;  // with the usual columns
    std::optional<std::string> columns;

    bool isWanted() const { return usual || columns; }
};
// Declares "--table" and "--columns", which fill in `options`.
void declareTable(CLI::App& command, TableOptions& options);

// A table of apps, a line for each app. On a terminal, columns are aligned and long values cut, so
// it is printed when all apps are known. For a program, values are whole and separated by tabs, and
// each line is printed at once.
class InfoTable {
public:
    // `names` are separated by commas: fields, in any case, "File", "Form" and "Screenshot"; the
    // usual ones if there are none. Throws UsageError if there is no column of a name.
    explicit InfoTable(const std::optional<std::string>& names);

    // The text of an answer for show(). Any thread may call it.
    std::string rowOf(const TableApp& app) const;
    // Prints the row, or keeps it for end().
    void show(const Answer& answer);
    void end() const;

private:
    // A field, or what is known of the file besides.
    struct Column {
        std::string title;
        std::optional<Field> field;
    };

    static std::vector<Column> allColumns();
    static ustring valueOf(const Column& column, const TableApp& app);

    std::vector<Column> columns_;
    std::vector<std::string> rows_;  // for a terminal
};

// "(none)", or "png, 26,098 bytes".
std::string screenshotText(const appserialization::ScreenshotSize& screenshot);

}  // namespace qzapp
