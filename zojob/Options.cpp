#include "zojob/Options.h"

#include "jobs/JobName.h"
#include "schedule/ZoSchedule.h"
#include "zojob/Report.h"
#include "zojob/Usage.h"

#include <CLI/CLI.hpp>

#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

static const char* const NAMES_HELP =
    "A JOB is named by its number, 'last', 'running' or 'failed'; another application's by its "
    "id, or ID:DIRECTORY. Where several make sense, 3-7 names all of these.";
static const char* const WORDS_HELP =
    "Two words or more are a command with exactly these arguments. One word is a line of shell. "
    "A single - reads a script from standard input. The job gets the caller's environment.\n";
static const char* const COMMON_HELP = "Options of every command: see 'zojob --help'.";
static const char* const CODES_HELP =
    "Exit codes: 0 done; 1 refused or nothing matched; 2 wrong usage; 3 no server; 124 wait timed "
    "out; 130 interrupted. wait and submit --wait end with the job's own: 125 it could not be "
    "run, 126 it was skipped, 143 killed.";

/// The version in the library's record, "|key|value|key|value...".
static std::string versionText()
{
    const std::string record = kelvopackage_schedule(), key = "|version_tag|v";
    const std::size_t start = record.find(key) + key.size();
    return "zojob " + record.substr(start, record.find('|', start) - start);
}

/// The installation directory: this program is its bin/zojob, whatever link led here.
static std::string ownRoot()
{
    char path[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path);
    const std::string program(path, n > 0 ? n : 0);
    const std::size_t bin = program.rfind('/');
    if (bin == std::string::npos || bin == 0)
        return "";
    return program.substr(0, program.rfind('/', bin - 1));
}

static const std::size_t HELP_COLUMN = 27;  // where what options do stands
static const double WATCH_INTERVAL = 2;     // seconds, for a --watch without a number

/// The set-up of CLI11, which fills the options while it parses.
class Grammar
{
public:
    explicit Grammar(Options& target);

    CLI::App app{ "Queues shell commands and runs them one after another in the background.\n"
                  "Without a command it lists the queue.",
                  "zojob" };
    CLI::App* submit = nullptr;

private:
    void addSubmit();
    void addConditions();
    void addList();
    void addQueueCommands();
    void addLookCommands();
    CLI::App* command(const char* name, const char* help);
    void jobs(CLI::App* sub, int least, int most);

    Options& options;
    std::vector<std::string> unused;  // what stands for submit's words
};

Grammar::Grammar(Options& target) : options(target)
{
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.get_formatter()->label("Positionals", "Arguments");
    app.get_formatter()->label("REQUIRED", "");
    app.get_formatter()->column_width(HELP_COLUMN);
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.set_help_flag("-h,--help", "Say how zojob, or one of its commands, is used");
    app.set_version_flag("-V,--version", versionText(), "Print the version");
    app.add_option("--host", options.host, "Use the server on that machine")->type_name("NAME");
    app.add_option("--root", options.root, "Installation directory whose bin/start starts a server")
        ->type_name("DIR");
    app.add_option("--color", options.color, "Colour: auto, never or always")
        ->check(oneOf({ "auto", "never", "always" }))
        ->type_name("WHEN");
    app.footer(std::string(NAMES_HELP) + "\n" + CODES_HELP);
    addSubmit();
    addList();
    addQueueCommands();
    addLookCommands();
}

CLI::App* Grammar::command(const char* name, const char* help)
{
    CLI::App* const sub = app.add_subcommand(name, help);
    sub->group("Commands");
    sub->footer(std::string(NAMES_HELP) + "\n" + COMMON_HELP);
    sub->callback([this, name] { options.command = name; });
    return sub;
}

void Grammar::jobs(CLI::App* sub, int least, int most)
{
    sub->add_option("JOB", options.jobs, "The job's name")
        ->required(least > 0)
        ->expected(std::max(least, 1), most)
        ->type_name("");
}

void Grammar::addSubmit()
{
    submit = command("submit", "Queue a command; print the job's number");
    submit->alias("add");
    submit->add_option("-L,--label", options.label, "Description; default: the command")
        ->type_name("TEXT");
    submit->add_option("-C,--directory", options.directory, "Run the command there; default: here")
        ->type_name("DIR");
    submit->add_flag("-r,--run", options.run, "Also run the waiting jobs");
    submit->add_flag("-w,--wait", options.wait, "Wait for its end, and end with its status");
    submit->add_flag("-q,--quiet", options.quiet, "Print nothing");
    submit
        ->add_option("--slurm", options.slurmOptions,
                     "Hand it over to the Slurm cluster, with these options for sbatch")
        ->type_name("[=OPTIONS]")
        ->expected(0, 1);
    submit->add_flag("--detach", options.detach,
                     "With --slurm: go on with the queue once it is handed over");
    submit->add_flag("--json", options.json, "Print the job as JSON");
    addConditions();
    submit->add_option("CMD", unused, "Words of a command, a line of shell, or -: see below")
        ->type_name("")
        ->expected(0, INT_MAX);
    submit->footer(std::string(WORDS_HELP) + COMMON_HELP);
}

void Grammar::addConditions()
{
    const auto names = [this](const char* name, std::vector<std::string>& to, const char* help) {
        submit->add_option(name, to, help)
            ->delimiter(',')
            ->allow_extra_args(false)
            ->type_name("JOB,JOB");
    };
    names("--after", options.after, "Only if these have ended with 0 when its turn comes");
    names("--after-any", options.afterAny, "Only if these have ended then");
    submit->add_option("--timeout", options.jobTimeout, "End it after this time: 90, 30m, 2h, 1d")
        ->type_name("TIME");
    submit->add_option("--retry", options.retries, "Run it again so often while it fails")
        ->check(wholeNumberFrom(0, 1000000))
        ->type_name("N");
    submit->add_option("--then", options.then, "Run this line of shell at its end")
        ->type_name("COMMAND");
    submit->add_option("--shell", options.shell, "Run a line or script by this shell")
        ->type_name("SHELL");
    submit->add_option("--lines", options.linesFile, "One job for each line of a file; -: of input")
        ->type_name("FILE");
}

void Grammar::addList()
{
    CLI::App* const list = command("list", "List the queue");
    list->alias("ls");
    list->add_option("--state", options.states,
                     "Only those in these states, such as failed,timed-out")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(oneOf({ "waiting", "running", "done", "failed", "timed-out", "skipped", "killed",
                        "cancelled" }))
        ->type_name("S,S");
    list->add_option("-n", options.count, "Only the last N jobs")
        ->check(wholeNumberFrom(0, 1e9))
        ->type_name("N");
    list->add_option("--watch", options.watch,
                     "Again at each change and every SEC seconds, 2, until q")
        ->expected(0, 1)
        ->check(numberFrom(0.1, 1e6))
        ->type_name("[=SEC]");
    list->add_flag("--wide", options.wide, "All columns, uncut");
    list->add_flag("--json", options.json, "One JSON array");
    list->add_flag("--no-header", options.noHeader, "Neither headings nor counts");
    list->add_flag("--names", options.names)->group("");  // for completions
    list->footer(COMMON_HELP);
}

void Grammar::addQueueCommands()
{
    jobs(command("run", "Run one waiting job, or all"), 0, 1);
    CLI::App* const kill = command("kill", "Kill the running job, or these; cancel waiting ones");
    kill->add_option("--grace", options.grace, "Seconds until SIGKILL; default 10")
        ->check(numberFrom(0, 1e6))
        ->type_name("SEC");
    kill->add_flag("--continue", options.goOn, "Go on with the queue");
    jobs(kill, 0, INT_MAX);
    CLI::App* const again = command("again", "Submit jobs anew; bring back cancelled ones");
    again->add_flag("-r,--run", options.run, "Also run the waiting jobs");
    jobs(again, 1, INT_MAX);
    CLI::App* const remove = command("remove", "Remove jobs with what zojob made for them");
    remove->alias("rm");
    remove->add_flag("--force", options.force, "Also those whose directories zojob did not make");
    remove->add_flag("--finished", options.finished, "All that have ended and have not failed");
    remove->add_flag("--failed", options.failed, "All that have failed, timed out or were skipped");
    remove->add_flag("--all", options.all, "All that have ended");
    jobs(remove, 0, INT_MAX);
    command("stop", "Stop after the running job; the rest waits")->footer(COMMON_HELP);
    command("quit", "End the server; a running job goes on")->footer(COMMON_HELP);
    command("window", "Open the queue in a window")->footer(COMMON_HELP);
    command("keep", "")->group("");  // what zojob and the window start themselves
}

void Grammar::addLookCommands()
{
    CLI::App* const log =
        command("log", "Print the output of jobs; default: the running or last run");
    log->add_flag("-f,--follow", options.follow, "Go on until the job ends");
    log->add_option("-n,--lines", options.lines, "Only the last LINES lines")
        ->check(wholeNumberFrom(0, 1e9))
        ->type_name("LINES");
    jobs(log, 0, INT_MAX);
    CLI::App* const wait = command("wait", "Wait for jobs, default all; end with their status");
    wait->add_option("--timeout", options.timeout, "End with 124 after so many seconds")
        ->check(numberFrom(0, 1e9))
        ->type_name("SEC");
    jobs(wait, 0, INT_MAX);
    CLI::App* const show = command("show", "Show everything about jobs");
    show->add_flag("--script", options.script, "Also the script, with the job's environment");
    show->add_flag("--json", options.json, "As JSON");
    jobs(show, 1, INT_MAX);
    CLI::App* const status = command("status", "Say whether a server runs, and what; starts none");
    status->add_flag("--json", options.json, "As JSON");
    status->footer(COMMON_HELP);
    CLI::App* const help = command("help", "Say how zojob, or one of its commands, is used");
    help->add_option("COMMAND", options.jobs, "Its name")->expected(0, 1)->type_name("");
    help->footer(CODES_HELP);
    command("version", "Print the version")->footer(COMMON_HELP);
}

/// Whether this word, which begins with "-", has its value in the next one.
static bool takesNext(const CLI::App& app, const CLI::App* sub, const std::string& word)
{
    const auto takesValue = [&app, sub](const std::string& name) {
        const CLI::Option* option = sub ? sub->get_option_no_throw(name) : nullptr;
        if (!option)
            option = app.get_option_no_throw(name);
        return option && option->get_items_expected_min() > 0;
    };
    if (word.compare(0, 2, "--") == 0)
        return word.find('=') == std::string::npos && takesValue(word);
    for (std::size_t i = 1; i < word.size(); ++i)
        if (takesValue(std::string("-") + word[i]))
            return i + 1 == word.size();
    return false;
}

/// Takes the words of a submitted command off the end of the arguments. They must not pass through
/// CLI11, which would read options and lists in brackets out of them.
static std::vector<std::string> takeWords(const Grammar& grammar, std::vector<std::string>& args)
{
    const CLI::App* sub = nullptr;
    std::size_t i = 0;
    for (; i < args.size(); ++i) {
        const std::string& word = args[i];
        if (sub && word == "--")
            break;
        if (word.size() > 1 && word[0] == '-') {
            i += takesNext(grammar.app, sub, word);
            continue;
        }
        if (sub)
            break;
        if (!grammar.submit->check_name(word))
            return {};
        sub = grammar.submit;
    }
    const std::size_t end = std::min(i, args.size());
    const std::size_t start = end < args.size() && args[end] == "--" ? end + 1 : end;
    std::vector<std::string> words(args.begin() + start, args.end());
    args.resize(end);
    if (!words.empty())
        args.push_back("CMD");  // stands for them where one is required
    return words;
}

/// Writes "--slurm" without options as with empty ones: CLI11 would take the next word for them.
static void completeSlurm(std::vector<std::string>& args)
{
    for (std::string& arg : args)
        if (arg == "--slurm")
            arg += '=';
}

/// Writes "--label=" as "--label" and an empty word: CLI11 would take the next word for the value.
static void separateEmptyValues(std::vector<std::string>& args)
{
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i].size() < 4 || args[i].compare(0, 2, "--") != 0 || args[i].back() != '=')
            continue;
        args[i].pop_back();
        args.insert(args.begin() + i + 1, "");
    }
}

/// A time as "90", "1.5m", "2h" or "1d", in seconds.
static std::string secondsText(const std::string& time, const std::string& hint)
{
    static const std::pair<char, double> units[] = {
        { 's', 1 }, { 'm', 60 }, { 'h', 3600 }, { 'd', 86400 }
    };
    char* end = nullptr;
    double seconds = std::isdigit((unsigned char)time[0]) ? std::strtod(time.c_str(), &end) : 0;
    for (const auto& [letter, unit] : units)
        if (end && *end == letter && !end[1]) {
            seconds *= unit;
            ++end;
        }
    if (!end || *end || !(seconds > 0 && seconds < 1e9))
        throw Failure{ WRONG_USAGE,
                       "--timeout: '" + time + "' is no time like 90, 30m, 2h or 1d" + hint };
    char text[64];
    std::snprintf(text, sizeof text, seconds == std::floor(seconds) ? "%.0f" : "%.3f", seconds);
    return text;
}

/// What CLI11 cannot check of a submission.
static void checkSubmit(Options& options, const std::string& hint)
{
    if (options.words.empty() != options.hasLines)
        throw Failure{ WRONG_USAGE,
                       (options.hasLines ? "a command, or --lines: choose one" : NO_COMMAND) +
                           hint };
    if (options.slurm && (!options.jobTimeout.empty() || options.retries > 0))
        throw Failure{ WRONG_USAGE,
                       "--timeout and --retry are for jobs of this machine: give sbatch "
                       "--time and --requeue" +
                           hint };
    if (options.detach && !options.then.empty())
        throw Failure{ WRONG_USAGE,
                       "--then with --detach: nothing here sees the job's end" + hint };
    if (!options.jobTimeout.empty())
        options.jobTimeout = secondsText(options.jobTimeout, hint);
}

/// What CLI11 cannot check by itself.
static void checkTogether(Options& options)
{
    const std::string hint = helpHint(options.command);
    if (options.words.size() > 1 && options.words[0] == "-")
        throw Failure{ WRONG_USAGE, "a script from standard input takes no words: '" +
                                        options.words[1] + "'" + hint };
    if (options.command == "submit")
        checkSubmit(options, hint);
    if (options.command == "list" && options.json && options.watch > 0)
        throw Failure{ WRONG_USAGE, "--json prints one document, --watch many: choose one" + hint };
    if (options.detach && !options.slurm)
        throw Failure{ WRONG_USAGE,
                       "--detach is for jobs of a cluster: use it with --slurm" + hint };
    const bool isKind = options.finished || options.failed || options.all;
    if (options.command == "remove" && options.jobs.empty() != isKind)
        throw Failure{
            WRONG_USAGE,
            "remove which jobs? Name them, or use one of --finished, --failed and --all" + hint
        };
}

/// The help of the command that is named; without a name, of zojob itself.
static std::string helpText(CLI::App& app, const std::vector<std::string>& names)
{
    if (names.empty())  // help() of the app is that of the command that was read
        return app.get_formatter()->make_help(&app, "zojob", CLI::AppFormatMode::Normal);
    for (CLI::App* const command : app.get_subcommands([](CLI::App*) { return true; }))
        if (command->check_name(names[0]))
            return command->help("zojob");
    throw Failure{ WRONG_USAGE, "no command is named '" + names[0] + "'" + helpHint("") };
}

Options parseOptions(int argc, char** argv)
{
    Options options;
    Grammar grammar(options);
    std::vector<std::string> args(argv + (argc > 0), argv + argc);
    options.words = takeWords(grammar, args);
    completeSlurm(args);
    separateEmptyValues(args);
    std::reverse(args.begin(), args.end());  // the order in which CLI11 takes them
    try {
        grammar.app.parse(args);
    } catch (const CLI::CallForHelp&) {
        options.command.clear();
        options.text = wrapped(grammar.app.help());
        return options;
    } catch (const CLI::CallForVersion& version) {
        options.command.clear();
        options.text = std::string(version.what()) + "\n";
        return options;
    } catch (const CLI::ParseError& error) {
        throw wrongUsage(grammar.app, error);
    }
    if (options.command == "help" || options.command == "version") {
        options.text = options.command == "help" ? wrapped(helpText(grammar.app, options.jobs))
                                                 : versionText() + "\n";
        options.command.clear();
        return options;
    }
    options.labelled = grammar.submit->count("--label") > 0;
    if (grammar.app.get_subcommand("list")->count("--watch") > 0 && options.watch == 0)
        options.watch = WATCH_INTERVAL;
    options.slurm = grammar.submit->count("--slurm") > 0;
    options.hasLines = grammar.submit->count("--lines") > 0;
    checkTogether(options);
    if (options.root.empty())
        options.root = ownRoot();
    return options;
}
