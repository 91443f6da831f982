#include "tools/blobs/Command.h"

#include "tools/blobs/Exports.h"
#include "tools/blobs/Files.h"
#include "tools/blobs/Filter.h"
#include "tools/blobs/Listing.h"

#include "Agent/Protocol/Names.h"

namespace Torvane::Blobs
{
namespace
{
constexpr char usage[] =
    R"(blobs list RECORDING [filter...] [--whole]     a table, one line for each Blob (<- is from the Agent)
blobs show RECORDING NUMBER [--whole]          one Blob: its fields beside its bytes
blobs trace RECORDING --output FILE [--force] [filter...]   for trace viewers
blobs html RECORDING --output FILE [--force] [filter...]    a page for a browser
blobs layouts [TYPE]                           the fields of one type of Blob, or of all
blobs help (or --help)                         this help
blobs --version                                the version

Filters: --type NAME[,NAME...] (or numbers)    --direction to-agent|from-agent
         --from SECONDS    --to SECONDS

--whole prints long lines and all bytes in full. An existing file is replaced only with --force.
Exit status: 0 success, 1 a file is missing, invalid or can't be written, 2 wrong usage.
)";

/// The parsed and validated arguments.
struct Request
{
    std::string verb;
    std::vector<std::string> words; ///< arguments that are neither the verb nor an option
    Filter filter;
    std::string output;
    bool isForced = false;
    bool isWhole = false;
    std::string fault; ///< an error message; empty for a valid request
};

class ArgumentReader
{
public:
    explicit ArgumentReader(const std::vector<std::string>& allArguments)
        : arguments(allArguments)
    {
    }

    Request Read()
    {
        request.verb = arguments.empty() ? "" : arguments[0];
        for (next = 1; next < arguments.size() && request.fault.empty();)
        {
            const std::string& argument = arguments[next++];
            if (argument.size() > 1 && argument[0] == '-')
            {
                ReadOption(argument);
            }
            else
            {
                request.words.push_back(argument);
            }
        }
        return request;
    }

private:
    void ReadOption(const std::string& option)
    {
        const bool isExport = request.verb == "trace" || request.verb == "html";
        const bool isFiltered = isExport || request.verb == "list";
        if (option == "--whole" && (request.verb == "list" || request.verb == "show"))
        {
            request.isWhole = true;
        }
        else if (option == "--force" && isExport)
        {
            request.isForced = true;
        }
        else if (option == "--output" && isExport)
        {
            request.output = Value(option);
        }
        else if (!isFiltered || !ReadFilter(option))
        {
            request.fault = "There is no option " + option + " for \"blobs " + request.verb + "\".";
        }
    }

    bool ReadFilter(const std::string& option)
    {
        if (option == "--type")
        {
            std::string unknown;
            const std::string types = Value(option);
            if (request.fault.empty() && !request.filter.AddTypes(types, unknown))
            {
                request.fault = "There is no type of Blob \"" + unknown + "\".";
            }
        }
        else if (option == "--direction")
        {
            ReadDirection(Value(option));
        }
        else if (option == "--from" || option == "--to")
        {
            const std::string seconds = Value(option);
            if (request.fault.empty() &&
                !ParseSeconds(seconds, option == "--from" ? request.filter.from : request.filter.to))
            {
                request.fault = "\"" + seconds + "\" isn't a number of seconds.";
            }
        }
        else
        {
            return false;
        }
        return true;
    }

    void ReadDirection(const std::string& direction)
    {
        request.filter.isFromAgentWanted = direction == "from-agent";
        request.filter.isToAgentWanted = direction == "to-agent";
        if (request.fault.empty() && !request.filter.isFromAgentWanted && !request.filter.isToAgentWanted)
        {
            request.fault = "A direction is to-agent or from-agent, not \"" + direction + "\".";
        }
    }

    std::string Value(const std::string& option)
    {
        if (next >= arguments.size() || arguments[next].empty())
        {
            request.fault = "The option " + option + " needs a value.";
            return "";
        }
        return arguments[next++];
    }

    const std::vector<std::string>& arguments;
    size_t next = 0;
    Request request;
};

Outcome Failed(int exitCode, const std::string& sentence)
{
    Outcome outcome;
    outcome.exitCode = exitCode;
    outcome.error = "blobs: " + sentence + "\n";
    return outcome;
}

Outcome ShowLayouts(const Request& request)
{
    Outcome outcome;
    const Bridge::BlobLayout* layout = nullptr;
    if (!request.words.empty())
    {
        Filter filter;
        std::string unknown;
        layout = filter.AddTypes(request.words[0], unknown) && filter.types.size() == 1
                     ? Bridge::FindBlobLayout(*filter.types.begin())
                     : nullptr;
        if (layout == nullptr)
        {
            return Failed(wrongUsage, "There is no type of Blob \"" + request.words[0] + "\".");
        }
    }
    outcome.output = ListLayouts(layout);
    return outcome;
}

Outcome ShowOne(const Request& request, const Recording& recording)
{
    uint64_t number = 0;
    if (!ParseNumber(request.words[1], number))
    {
        return Failed(wrongUsage, "\"" + request.words[1] + "\" isn't the number of a Blob.");
    }
    for (const RecordedBlob& blob : recording.blobs)
    {
        if (blob.number == number)
        {
            Outcome outcome;
            outcome.output = ShowBlob(blob, request.isWhole);
            return outcome;
        }
    }
    return Failed(failure, request.words[0] + " has no Blob " + request.words[1] + ".");
}

Outcome Export(const Request& request, const Recording& recording)
{
    const std::string& input = request.words[0];
    if (IsSameFile(input, request.output))
    {
        return Failed(wrongUsage, "The output " + request.output + " is the recording itself.");
    }
    const std::string title = input.substr(input.find_last_of("/\\") + 1);
    const std::string content = request.verb == "trace" ? MakeTrace(recording, request.filter)
                                                        : MakePage(recording, request.filter, title);
    std::string reason;
    if (!WriteFile(request.output, content, request.isForced, reason))
    {
        return Failed(failure, request.output + " can't be written: " + reason + ".");
    }
    return {};
}

/// How many arguments a verb has besides options; 0 for one that reads no recording.
size_t WordsOf(const std::string& verb)
{
    return verb == "show" ? 2 : verb == "list" || verb == "trace" || verb == "html" ? 1 : 0;
}

/// Checks what concerns several arguments.
std::string FaultOf(const Request& request)
{
    const size_t words = WordsOf(request.verb);
    const bool isLayouts = request.verb == "layouts";
    if (words == 0 && !isLayouts)
    {
        return request.verb.empty()
                   ? "Say what to do; \"blobs help\" lists what there is."
                   : "There is no \"blobs " + request.verb + "\"; \"blobs help\" lists what there is.";
    }
    if (!request.fault.empty())
    {
        return request.fault;
    }
    if (request.words.size() < words)
    {
        return request.words.empty() ? "\"blobs " + request.verb + "\" needs a recording."
                                     : "\"blobs show\" needs the number of a Blob.";
    }
    if (request.words.size() > (isLayouts ? 1 : words))
    {
        return "The argument \"" + request.words.back() + "\" is one too many.";
    }
    if (request.output.empty() && (request.verb == "trace" || request.verb == "html"))
    {
        return "\"blobs " + request.verb + "\" needs --output and the name of a file.";
    }
    return "";
}
} // namespace

Outcome RunCommand(const std::vector<std::string>& arguments)
{
    const Request request = ArgumentReader(arguments).Read();
    Outcome outcome;
    if (request.verb == "help" || request.verb == "--help" || request.verb == "-h")
    {
        outcome.output = usage;
        return outcome;
    }
    if (request.verb == "--version")
    {
        outcome.output = std::string("blobs ") + apiVersion + "\n";
        return outcome;
    }
    const std::string fault = FaultOf(request);
    if (!fault.empty())
    {
        return Failed(wrongUsage, fault);
    }
    if (request.verb == "layouts")
    {
        return ShowLayouts(request);
    }

    const std::string& path = request.words[0];
    std::string text;
    std::string reason;
    Recording recording;
    if (!ReadFile(path, text, reason) || !ParseRecording(text, recording, reason))
    {
        return Failed(failure, path + " can't be read: " + reason + ".");
    }
    if (request.verb == "list")
    {
        outcome.output = ListBlobs(recording, request.filter, request.isWhole);
    }
    else
    {
        outcome = request.verb == "show" ? ShowOne(request, recording) : Export(request, recording);
    }
    if (outcome.exitCode == success && recording.isCut)
    {
        outcome.error = "blobs: The last line of " + path + " has no end, so it was left out.\n";
    }
    return outcome;
}
} // namespace Torvane::Blobs
