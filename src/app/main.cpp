// Entry point of Pelma host.

#include <fmt/format.h>

#include <QUrl>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/Application.h"
#include "app/Listen.h"
#include "app/Playback.h"
#include "platform/audio/AudioComponent.h"
#include "platform/audio/AudioOutput.h"
#include "platform/audio/JackClient.h"
#include "platform/foundation/Folders.h"
#include "platform/foundation/UserDefaults.h"

namespace {

constexpr std::string_view kInstrumentName = "Pelma";

void printUsage() {
  fmt::print(
      "Usage: pelma [options] [SESSION.pelmasession | BANK.plb | pelma:URL ...]\n"
      "Hosts the LV2 instrument \"{}\" and plays it from the keyboard, MIDI and the step "
      "sequencer.\n\n"
      "Without a mode it opens the window: the instrument's editor, the sequencer and the\n"
      "keyboard (headless when there is no display).\n\n"
      "  --idiom tablet|phone      the window's layout (default tablet)\n"
      "  -v, --version             print the version\n"
      "  -h, --help                print this help\n"
      "  --list-instruments        list the installed LV2 instruments (name and URI)\n"
      "  --render FILE.wav         render the pattern offline into a WAV file\n"
      "  --play                    play the pattern live through the audio output\n"
      "  --listen                  play the instrument live from MIDI input (every source and\n"
      "                            the virtual input \"CLIENT:Pelma\") until Ctrl+C, or\n"
      "                            for --seconds\n"
      "  --channel N               with --listen: only MIDI channel N (1-16; default all)\n"
      "  --connect HOST:PORT       invite a network MIDI peer (its control port) at start\n"
      "  --plugin NAME|URI         the instrument to play (default: the session's, else \"{}\");\n"
      "                            a launch that names one runs beside an open window\n"
      "                            instead of handing its files to it\n"
      "  --fresh                   start from the defaults, not from the last session\n"
      "  --jack-name NAME          the JACK client's name (default: the instrument's name)\n"
      "  --exact-name              refuse to start when the JACK name is taken\n"
      "  --no-connect              make no JACK connection, audio or MIDI: leave them to you\n"
      "                            or the session manager\n"
      "  --in-process              run the instrument inside this program, not in a process\n"
      "                            of its own (a crash of it then ends the program)\n"
      "  --notes LIST              the pattern, e.g. 60@0:0.5,64@1:0.5:90\n"
      "                            (note@beat:length[:velocity], looped over 4 beats);\n"
      "                            without it, a demo pattern from the step sequencer\n"
      "  --tempo BPM               tempo (default 120)\n"
      "  --seconds S               length (default 8); with the window: quit after S s\n"
      "  --sample-rate HZ          offline sample rate (default 48000)\n"
      "  --buffer-frames N         offline block size (default 256)\n\n"
      "Options take their value as the next argument or after '=' (--tempo=140).\n",
      kInstrumentName, kInstrumentName);
}

void printWhatWillLoad() {
  fmt::print("Instrument: \"{}\" (LV2 instrument plug-in)\n", kInstrumentName);
  fmt::print("LV2 search path: {}\n", platform::lv2SearchPath());
  fmt::print("Bank folder: {}\n", platform::bankFolder().string());
  fmt::print("Documents folder: {}\n", platform::documentsFolder().string());
}

std::optional<double> number(const char* text) {
  char* end = nullptr;
  const double value = std::strtod(text, &end);
  if (end == text || *end != '\0') return std::nullopt;
  return value;
}

// "pelma:..." and "file:..." stay as they are; a path becomes an absolute file URL.
std::string asUrl(std::string_view argument) {
  if (argument.starts_with("pelma:") || argument.starts_with("file:")) return std::string(argument);
  const auto path = std::filesystem::absolute(std::filesystem::path(argument));
  return QUrl::fromLocalFile(QString::fromStdString(path.string()))
      .toString(QUrl::FullyEncoded)
      .toStdString();
}

int usageError(std::string_view message) {
  fmt::print(stderr, "pelma: {}\n", message);
  return 2;
}

// The arguments with every "--name=value" split into "--name" and "value".
std::vector<std::string> splitArguments(int argc, char** argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    const auto equals = argument.find('=');
    if (argument.starts_with("--") && equals != std::string_view::npos) {
      arguments.emplace_back(argument.substr(0, equals));
      arguments.emplace_back(argument.substr(equals + 1));
    } else {
      arguments.emplace_back(argument);
    }
  }
  return arguments;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments = splitArguments(argc, argv);
  app::PlaybackOptions options;
  std::string renderPath;
  bool play = false;
  bool listen = false;
  bool secondsGiven = false;
  app::ApplicationOptions applicationOptions;
  app::ListenOptions listenOptions;
  platform::JackClient::Options jack;
  jack.connect =
      !platform::UserDefaults::standardUserDefaults().boolForKey("jack-no-connect").value_or(false);
  bool jackNameGiven = false;
  bool pluginGiven = false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view argument = arguments[i];
    const char* value = i + 1 < arguments.size() ? arguments[i + 1].c_str() : nullptr;
    auto needsValue = [&] {
      if (!value) return false;
      ++i;
      return true;
    };
    if (argument == "--version" || argument == "-v") {
      fmt::print("pelma {}\n", PELMA_VERSION);
      return 0;
    } else if (argument == "--help" || argument == "-h") {
      printUsage();
      return 0;
    } else if (argument == "--list-instruments") {
      return app::listInstruments();
    } else if (argument == "--play") {
      play = true;
    } else if (argument == "--idiom") {
      if (!needsValue() ||
          (std::string_view(value) != "phone" && std::string_view(value) != "tablet"))
        return usageError("--idiom: tablet or phone");
      applicationOptions.phoneIdiom = std::string_view(value) == "phone";
    } else if (argument == "--listen") {
      listen = true;
    } else if (argument == "--jack-name") {
      if (!needsValue() || !*value) return usageError("--jack-name needs a name");
      jack.name = value;
      jackNameGiven = true;
    } else if (argument == "--exact-name") {
      jack.exactName = true;
    } else if (argument == "--no-connect") {
      jack.connect = false;
    } else if (argument == "--in-process") {
      platform::AudioUnitComponentManager::shared().setOutOfProcessEnabled(false);
    } else if (argument == "--out-of-process") {
      // The default; still accepted, as earlier versions asked for it.
    } else if (argument == "--connect") {
      // host:port, the port a number from 1 to 65535
      const std::string_view peer = needsValue() ? std::string_view(value) : std::string_view();
      const auto colon = peer.rfind(':');
      const auto port = colon == std::string_view::npos
                            ? std::nullopt
                            : number(std::string(peer.substr(colon + 1)).c_str());
      if (colon == 0 || !port || *port < 1 || *port > 65535 || *port != static_cast<int>(*port))
        return usageError("--connect: HOST:PORT of a network MIDI peer");
      applicationOptions.networkPeer = std::string(peer);
    } else if (argument == "--channel") {
      if (!needsValue()) return usageError("--channel needs a number");
      auto parsed = number(value);
      if (!parsed || *parsed < 1 || *parsed > 16 || *parsed != static_cast<int>(*parsed))
        return usageError("--channel: a MIDI channel from 1 to 16");
      listenOptions.channel = static_cast<std::int32_t>(*parsed);
    } else if (argument == "--render") {
      if (!needsValue()) return usageError("--render needs a file name");
      renderPath = value;
    } else if (argument == "--plugin") {
      if (!needsValue()) return usageError("--plugin needs a name");
      options.pluginName = value;
      pluginGiven = true;
      applicationOptions.instrumentChosen = true;
    } else if (argument == "--fresh") {
      applicationOptions.fresh = true;
    } else if (argument == "--notes") {
      if (!needsValue()) return usageError("--notes needs a list");
      auto notes = app::parsePatternNotes(value);
      if (!notes)
        return usageError(
            "--notes: expected note@beat:length[:velocity],... with each beat in the bar (0 to "
            "under 4)");
      options.notes = *notes;
    } else if (argument == "--tempo" || argument == "--seconds" || argument == "--sample-rate" ||
               argument == "--buffer-frames") {
      if (!needsValue()) return usageError(fmt::format("{} needs a number", argument));
      auto parsed = number(value);
      if (!parsed || *parsed <= 0)
        return usageError(fmt::format("{}: not a positive number", argument));
      if (argument == "--tempo") options.tempo = *parsed;
      if (argument == "--seconds") {
        options.seconds = *parsed;
        secondsGiven = true;
      }
      if (argument == "--sample-rate") options.sampleRate = *parsed;
      if (argument == "--buffer-frames") options.bufferFrames = static_cast<unsigned>(*parsed);
    } else if (!argument.starts_with("-")) {
      // A bank file or a "pelma:" link to open, as other programs hand them over.
      applicationOptions.urls.push_back(asUrl(argument));
    } else {
      printUsage();
      return usageError(fmt::format("unknown option {}", argument));
    }
  }
  if (play && !renderPath.empty()) return usageError("--play and --render: choose one");
  if ((play || listen || !renderPath.empty()) && !app::installedInstrument(options.pluginName)) {
    fmt::print(stderr, "pelma: no instrument \"{}\" is installed; the installed ones:\n",
               options.pluginName);
    app::listInstruments(stderr);
    return 2;
  }
  if (!renderPath.empty()) return app::renderToFile(options, renderPath);

  // The JACK client is named after the instrument unless named here; with --exact-name a taken
  // name ends the launch before anything plays. The client opened to check is the one kept.
  if (!jackNameGiven) {
    const auto instrument =
        pluginGiven ? app::installedInstrument(options.pluginName) : std::nullopt;
    jack.name = instrument ? instrument->name : options.pluginName;
  }
  platform::JackClient::configure(jack);
  std::shared_ptr<platform::JackClient> jackClient;
  if (jack.exactName && platform::jackServerIsRunning()) {
    jackClient = platform::JackClient::shared();
    if (!jackClient && platform::jackServerIsRunning())  // a server, but not under our name
      return usageError(fmt::format("the JACK name \"{}\" is taken (--exact-name)",
                                    platform::JackClient::options().name));
  }
  applicationOptions.ownInstance = pluginGiven || jackNameGiven;
  applicationOptions.jackNameChosen = jackNameGiven;
  if (play) return app::playLive(options);
  if (listen) {
    listenOptions.pluginName = options.pluginName;
    if (secondsGiven) listenOptions.seconds = options.seconds;
    return app::listenLive(listenOptions);
  }

  fmt::print("Pelma host {}\n", PELMA_VERSION);
  printWhatWillLoad();
  std::fflush(stdout);
  applicationOptions.instrumentName = QString::fromStdString(options.pluginName);
  if (secondsGiven) applicationOptions.seconds = options.seconds;
  const int status = app::runApplication(argc, argv, applicationOptions);
  // An instrument still being made in this process uses what exit would destroy: end without it.
  if (platform::AudioUnitComponentManager::shared().instantiationsLeftBehind()) {
    std::fflush(nullptr);
    std::_Exit(status);
  }
  return status;
}
