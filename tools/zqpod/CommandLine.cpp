#include "CommandLine.h"

#include <glib.h>

#include <memory>

namespace zqpod {

namespace {

struct Parse {
    const std::vector<OptionSpec>& declared;
    ParsedCommandLine& result;
};

/// The option's name as specified, for what GLib reports in the form it was written ("-h").
std::string specifiedName(const std::vector<OptionSpec>& declared, const char* written)
{
    const std::string name(written);
    if (name.size() == 2 && name[0] == '-')
        for (const auto& option : declared)
            if (option.shortName == name[1])
                return option.name;
    return name;
}

gboolean takeOption(const gchar* name, const gchar* value, gpointer data, GError**)
{
    auto* parse = static_cast<Parse*>(data);
    parse->result.options.emplace_back(specifiedName(parse->declared, name), value ? value : "");
    return TRUE;
}

struct ContextDeleter {
    void operator()(GOptionContext* context) const { g_option_context_free(context); }
};

} // namespace

std::optional<std::string> ParsedCommandLine::value(const std::string& name) const
{
    std::optional<std::string> found;
    for (const auto& [option, value] : options)
        if (option == name)
            found = value;
    return found;
}

ParsedCommandLine parseCommandLine(const std::vector<std::string>& args, const std::vector<OptionSpec>& declared)
{
    ParsedCommandLine result;
    Parse parse{declared, result};

    std::vector<GOptionEntry> entries;
    for (const auto& option : declared) {
        GOptionEntry entry{};
        entry.long_name = option.name + 2;  // without the "--"
        entry.short_name = option.shortName;
        // A value is taken as a file name is: bytes as they are, no conversion from the locale.
        entry.flags = option.valueName ? G_OPTION_FLAG_FILENAME : G_OPTION_FLAG_NO_ARG;
        entry.arg = G_OPTION_ARG_CALLBACK;
        entry.arg_data = reinterpret_cast<gpointer>(&takeOption);
        entry.arg_description = option.valueName;
        entries.push_back(entry);
    }
    entries.push_back(GOptionEntry{});

    std::unique_ptr<GOptionContext, ContextDeleter> context(g_option_context_new(nullptr));
    // zqpod writes its own help, and names unknown options in its own words.
    g_option_context_set_help_enabled(context.get(), FALSE);
    g_option_context_set_ignore_unknown_options(context.get(), TRUE);
    GOptionGroup* group = g_option_group_new("zqpod", "", "", &parse, nullptr);
    g_option_group_add_entries(group, entries.data());
    g_option_context_set_main_group(context.get(), group);

    // GLib takes the first word for the program's name, and leaves in place what it does not
    // take.
    std::vector<gchar*> words = {g_strdup("zqpod")};
    for (const auto& arg : args)
        words.push_back(g_strdup(arg.c_str()));
    words.push_back(nullptr);
    gchar** argv = static_cast<gchar**>(g_memdup2(words.data(), words.size() * sizeof(gchar*)));
    GError* error = nullptr;
    const bool parsed = g_option_context_parse_strv(context.get(), &argv, &error);
    std::vector<std::string> rest;
    for (gchar** word = argv + 1; *word; ++word)
        rest.emplace_back(*word);
    g_strfreev(argv);
    if (!parsed) {
        CommandLineError failure{error->message, std::nullopt};
        g_error_free(error);
        // GLib misses a value only when its option comes last.
        if (!args.empty())
            for (const auto& option : declared)
                if (option.valueName && args.back() == option.name)
                    failure.optionWithoutValue = option.name;
        throw failure;
    }

    // GLib lets "--flag=value" pass as the flag, its value dropped: a mistake to name instead.
    for (const auto& arg : args) {
        if (arg == "--")
            break;
        for (const auto& option : declared)
            if (!option.valueName && arg.starts_with(std::string(option.name) + "="))
                result.unknown.push_back(arg);
    }
    bool ended = false;  // by "--": everything after it is a word, however it looks
    for (auto& word : rest) {
        if (!ended && word == "--")
            ended = true;
        else if (!ended && word.size() > 1 && word[0] == '-')
            result.unknown.push_back(std::move(word));
        else
            result.words.push_back(std::move(word));
    }
    return result;
}

} // namespace zqpod
