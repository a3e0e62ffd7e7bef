#include "tools/qzapp/verbs/Verbs.hpp"

#include <array>

namespace qzapp {

std::span<const Verb> verbs() {
    static constexpr std::array kVerbs = {
        Verb{"create", "Make a packaged app from code, model, metadata and screenshot",
             declareCreate},
        Verb{"edit", "Change some of a packaged app and keep the rest", declareEdit},
        Verb{"convert", "Make a packaged app from a text app", declareConvert},
        Verb{"info", "Show an app's metadata, and its screenshot's format and size", declareInfo},
        Verb{"show", "Show a whole app as text, for people and for git", declareShow},
        Verb{"diff", "Compare two apps: metadata, code and parts", declareDiff, kTrouble},
        Verb{"gallery", "Make a web page of all apps in a folder", declareGallery},
        Verb{"extract", "Write an app's content to files", declareExtract},
        Verb{"parts", "List and check the parts of any package", declareParts},
        Verb{"items", "List and check the items of any zip file", declareItems},
        Verb{"check", "Report what is wrong with apps and packages, and repair them", declareCheck},
        Verb{"index", "Keep a catalogue of all apps in some folders, as a database", declareIndex},
        Verb{"find", "Find apps in a catalogue by words, fields and what is wrong with them",
             declareFind},
        Verb{"merge", "Merge the changes of two copies of an app", declareMerge, kTrouble},
        Verb{"git-setup", "Let git show, merge and store apps well in a repository",
             declareGitSetup},
        Verb{"repack", "Pack a packaged app anew: stored, for git, or deflated", declareRepack},
    };
    return kVerbs;
}

}  // namespace qzapp
