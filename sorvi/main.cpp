#include "Commands.h"
#include "SorviKit/library/ShotScanner.h"

#include <QCoreApplication>
#include <QTextStream>

#include <functional>
#include <map>

namespace {

const char *const usage =
    "usage: sorvi <command> [arguments]\n"
    "\n"
    "commands:\n"
    "  scan FOLDER [--json]              list the shots of a folder with their details and bursts\n"
    "  ratings FOLDER [--json]           print the ratings stored for a folder\n"
    "  rate FOLDER ID [--stars N] [--pick|--reject|--unflag]\n"
    "       [--label Red|Yellow|Green|Blue|Purple|none]\n"
    "                                    change the rating of one shot\n"
    "  previews FILE [--json]            list the JPEG pictures stored inside a (RAW) file\n"
    "  preview PATH... [--max N] --out DIR\n"
    "                                    write each shot's preview, upright, long side at most N\n"
    "                                    (default 1024), as DIR/<name>.jpg\n"
    "  check FOLDER [--json]             check sharpness, faces and closed eyes of every shot not yet\n"
    "                                    checked; print the results, soft shots and each burst's best\n"
    "  ask FOLDER --count N (--preset album|story|portraits|bursts | --request TEXT)\n"
    "       [--provider anthropic|openai|xai|compatible] [--model M] [--endpoint URL] [--yes] [--json]\n"
    "                                    ask an AI service, with your own key, to choose up to N photos;\n"
    "                                    the key comes from ANTHROPIC_API_KEY, OPENAI_API_KEY or\n"
    "                                    XAI_API_KEY when set, else from the keyring\n"
    "  key set|remove|test PROVIDER      keep, remove or try an AI service's API key (set reads it from\n"
    "                                    standard input)\n"
    "  demo DIR [--count N]              write a generated demo shoot into DIR\n"
    "  handoff FOLDER [--sidecars] [--sidecar-style lightroom|darktable] [--flags-list]\n"
    "       [--copy DEST [--second-copy DEST2] [--what picks|rated|all] [--manifest]]\n"
    "       [--remove-location] [--move-rejects] [--sidecar-folder DIR]\n"
    "                                    hand the ratings on: sidecars, verified copies (to a second\n"
    "                                    drive too, with a checksum list), rejects aside\n"
    "  put-back FOLDER                   put the rejects of the last move back where they were\n"
    "  verify DESTINATION                read every file listed in the checksum lists (.mhl) at the\n"
    "                                    top of DESTINATION again and say which match, differ or are\n"
    "                                    missing; exit 0 only when all match\n"
    "  repair CLIP --reference GOOD_CLIP [-o OUT]\n"
    "                                    rebuild the index of a damaged clip from a good clip of the same\n"
    "                                    camera; every track is kept; a new file is written beside it\n"
    "  repair PHOTO.JPG --reference GOOD.JPG [-o OUT]\n"
    "                                    rebuild the damaged start of a photo from a good photo of the\n"
    "                                    same camera and size\n"
    "  join PART1 PART2... [-o OUT]      join the parts a camera split a recording into\n";

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName("Kestrane");
    QCoreApplication::setApplicationName("Sorvi");
    ShotScanner::initializeMetadataReader();

    const std::map<QString, std::function<int(const QStringList &)>> commands{
        {"scan", Commands::scan},
        {"ratings", Commands::ratings},
        {"rate", Commands::rate},
        {"demo", Commands::demo},
        {"check", Commands::check},
        {"handoff", Commands::handoff},
        {"put-back", Commands::putBack},
        {"verify", Commands::verify},
        {"previews", Commands::previews},
        {"preview", Commands::preview},
        {"ask", Commands::ask},
        {"key", Commands::key},
        {"repair", Commands::repair},
        {"join", Commands::join},
    };
    QStringList args = app.arguments().mid(1);
    QTextStream err(stderr);
    if (args.isEmpty()) {
        err << usage;
        return 2;
    }
    if (args.first() == "--help" || args.first() == "-h") {
        QTextStream(stdout) << usage;
        return 0;
    }
    const QString name = args.takeFirst();
    const auto command = commands.find(name);
    if (command == commands.end()) {
        err << "sorvi: unknown command '" << name << "'\n\n" << usage;
        return 2;
    }
    return command->second(args);
}
