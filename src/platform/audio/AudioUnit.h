#pragma once

// One LV2 instrument, instantiated and ready to render inside the audio graph.
//
// It is at once the graph node, the high-level plug-in object (name, musical context, full
// state) and the render-level instance that MIDI channel messages are sent to. Messages may be
// sent from any thread at the same time without blocking; each reaches the plug-in's atom MIDI
// input in the next audio block, in the order each thread sent them.
//
// Host features given to the plug-in: urid:map and urid:unmap, options:options (sample rate,
// minimum/maximum/nominal block length, sequence size), bufsz:boundedBlockLength, worker:schedule
// (with a non-real-time worker thread), log:log, state:makePath, state:mapPath, state:freePath.

#include <lilv/lilv.h>
#include <lv2/atom/forge.h>
#include <lv2/state/state.h>

#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/audio/AudioComponent.h"
#include "platform/audio/AudioNode.h"
#include "platform/audio/ControlPorts.h"
#include "platform/audio/MidiArrival.h"
#include "platform/foundation/AudioThread.h"
#include "platform/foundation/ByteRing.h"
#include "platform/foundation/LockFreeQueues.h"
#include "platform/foundation/PropertyList.h"
#include "platform/foundation/SnapshotPublisher.h"
#include "platform/music/MidiBlock.h"
#include "platform/music/TransportPosition.h"

namespace platform {

class Lv2World;
struct Lv2Host;

// The render-level instance handle that MIDI messages are addressed to.
using AudioComponentInstance = class AudioUnit*;

// Gives the plug-in the host's tempo and time signature. It writes through the pointers it is
// given (tempo, numerator, denominator, beat position, samples to the next beat, downbeat
// position) and returns true when it did.
using MusicalContextBlock = std::function<bool(
    double* tempo, double* timeSignatureNumerator, std::int64_t* timeSignatureDenominator,
    double* currentBeatPosition, std::int64_t* sampleOffsetToNextBeat,
    double* currentMeasureDownbeatPosition)>;

// A preset of a plug-in (pset:Preset): its URI and the name it shows.
struct AudioUnitPreset {
  std::string uri;
  std::string name;
};

class PluginProcess;

class AudioUnit final : public AudioNode, public std::enable_shared_from_this<AudioUnit> {
 public:
  // Instantiates `plugin` (any thread), in this process or, with `outOfProcess`, in a plug-in
  // host process of its own (see PluginProcess). Null, with a one-line reason in `error`, when
  // the plug-in needs a feature this host lacks or fails to instantiate. An instrument whose
  // process dies or hangs is invalid from then on: it renders silence, and
  // kAudioComponentInstanceInvalidationNotification is posted on the main queue (object: the
  // unit; "audioUnit": the instance).
  static std::shared_ptr<AudioUnit> create(std::shared_ptr<Lv2World> world,
                                           const LilvPlugin* plugin, double sampleRate,
                                           std::uint32_t maxFrames, std::string* error,
                                           bool outOfProcess = false);
  ~AudioUnit() override;
  AudioUnit(const AudioUnit&) = delete;
  AudioUnit& operator=(const AudioUnit&) = delete;

  const std::string& name() const { return name_; }
  // Whether the plug-in runs in a process of its own, and whether that process still works.
  bool isOutOfProcess() const { return process_ != nullptr; }
  bool isValid() const noexcept;
  // The process running the plug-in, or 0.
  int pluginProcessId() const;
  // Audio graph: whether blocks are rendered in real time; an out-of-process plug-in is then
  // waited for only a fraction of the block's duration.
  void setRendersInRealTime(bool realTime) noexcept { realTime_.store(realTime); }
  const std::string& uri() const { return uri_; }
  // The lilv instance, for plug-in editors that need direct access to the plug-in
  // (instance-access, data-access). Main thread.
  LilvInstance* lilvInstance() const { return instance_; }
  double sampleRate() const { return sampleRate_; }
  // The number the plug-in knows `uri` by (urid:map), for editors and tests that read its atoms.
  std::uint32_t mapURI(const char* uri) const;
  std::uint32_t maximumFramesToRender() const { return maxFrames_; }
  // The block length the plug-in is told to expect most (buf-size:nominalBlockLength): the
  // output's period. Main thread, while the graph does not render this instrument; a plug-in
  // with the options interface hears the change at once.
  std::uint32_t nominalBlockLength() const;
  void setNominalBlockLength(std::uint32_t frames);

  // Any thread, never blocks. False when the message queue is full (the message is dropped).
  bool sendMIDIEvent(std::uint8_t status, std::uint8_t data1, std::uint8_t data2,
                     std::uint32_t sampleOffset) noexcept;

  // Main thread. Posts an atom:Object of type `typeUri` without properties to the plug-in's atom
  // input at the start of the next block (through the editor's queue): how a host asks a plug-in
  // to do something its own messages define. False when the plug-in has no atom input or the
  // queue is full.
  bool sendObjectMessage(const std::string& typeUri);

  // Main thread, while the graph does not render (this thread is then the queue's only
  // consumer): the messages queued so far are dropped and
  // the next block starts with "all notes off" on every channel (resuming after a pause, so
  // that stale notes do not burst out and notes whose note off was dropped do not hang).
  void discardQueuedMidi() noexcept;

  // Main thread. The block is called on the audio thread once per block; when the tempo or time
  // signature it reports changes, the plug-in receives them as a time position.
  void setMusicalContextBlock(MusicalContextBlock block);

  // Main thread. The plug-in's state: its URI and name, every control input by symbol
  // ("ports"), and the properties it saves through its state interface ("properties", each
  // with its "type" URI and "value").
  PropertyDictionary fullState();
  // Main thread, also while the graph renders (the plug-in skips the block the restore takes):
  // gives the plug-in a state fullState made (control inputs by symbol, then its stored
  // properties), a state file written by LV2 hosts (a Turtle file of lilv's state format), its
  // presets, or its default state (every control at its default, and the plug-in's own default
  // state when it has one). False, with one log line, when the state cannot be read.
  bool restoreFullState(const PropertyDictionary& state);
  bool restoreStateFromFile(const std::string& path);
  bool loadPreset(const std::string& presetUri);
  bool loadDefaultState();
  // Main thread: the plug-in's state as lilv's state (control inputs and stored properties, files
  // it names copied or linked into `saveFolder`), to be saved with lilv_state_save and freed by
  // the caller; null, with one log line, for a plug-in in a process of its own.
  LilvState* newLilvState(const std::string& saveFolder);
  // Main thread: the plug-in's presets, by name.
  std::vector<AudioUnitPreset> presets() const;
  // Main thread. The plug-in's state as an LV2 state in Turtle, as lilv writes it (its control
  // inputs and stored properties; subject <urn:pelma:state>), for lilv_state_new_from_string and
  // lilv_state_save; empty, with a log line, when it cannot be made. restoreStateFromTurtle gives
  // such a text back, as restoreStateFromFile does.
  std::string stateAsTurtle();
  bool restoreStateFromTurtle(const std::string& turtle);
  // All of the state functions above work alike for a plug-in in a process of its own: there the
  // host process does them on its instance. When that process no longer answers, fullState
  // gives the stored properties it last reported (so that the instrument can be made again).
  //
  // Main thread, while the graph does not render this instrument: makes the plug-in instance
  // again at `sampleRate`, keeping its state. This object, its MIDI queue and its ports stay, so
  // whoever sends it MIDI keeps doing so; an editor given lilvInstance() must be opened again.
  // False (and a log line) when the plug-in cannot run at that rate; it then keeps its old one.
  bool setSampleRate(double sampleRate);

  // Control inputs, by port symbol (any thread; the audio thread picks changes up per block).
  std::vector<std::string> parameterSymbols() const;
  float parameterValue(const std::string& symbol) const;
  void setParameterValue(const std::string& symbol, float value);

  // MIDI learn. Main thread: from the next block on, a controller message (on any channel) for a
  // bound controller sets that control over its range (valueForController) on the audio thread,
  // instead of reaching the plug-in; the editors see the value as any other change. A binding
  // whose symbol names no control input of this plug-in is left out.
  struct ControllerBinding {
    std::uint8_t controller = 0;  // 0..127
    ControlPort port;
  };
  void setControllerBindings(const std::vector<ControllerBinding>& bindings);
  // Main thread: while listening, the audio thread notes the number of each controller message;
  // takeHeardController gives the last one noted (and forgets it), or -1.
  void listenForControllers(bool listen) noexcept;
  int takeHeardController() noexcept { return heardController_.exchange(-1); }

  // Audio thread, called by the graph for every block, in this order.
  // Takes the queued messages into this block's MIDI (at their offsets) and returns the block,
  // for the music player to add its notes to.
  PELMA_HOT MidiBlock& beginBlock(std::uint32_t frames) noexcept;
  // Where the sequence stands at the start of this block (the graph tells it from its player).
  void setTransportPosition(const TransportPosition& position) noexcept { transport_ = position; }
  // Hands the block's MIDI to the plug-in and runs it for `frames` frames, into its own buffers,
  // or, given `into`, straight into the two channels there (a mono plug-in's output is copied
  // to both): the graph's first instrument then writes where the device reads, with no copy.
  PELMA_HOT void process(std::uint32_t frames, float* const* into = nullptr) noexcept;
  // The audio of the last block rendered into its own buffers: channel 0 and 1 (a mono plug-in
  // gives the same twice).
  PELMA_HOT const float* output(std::uint32_t channel) const noexcept;

  // Plug-in host process: runs the plug-in on the block in `shared` (its inputs as the
  // application wrote them) and writes the outputs there. The block's size for this plug-in:
  PELMA_HOT void runSharedBlock(std::uint8_t* shared) noexcept PELMA_NONBLOCKING;
  void carryInputOverRestores(bool suspended) noexcept;
  std::size_t sharedBlockSize() const { return sharedBlockSize_; }
  // Plug-in host process, its main thread: answers one request of askPluginProcess.
  std::string answerRequest(const std::string& request);
  // What a plug-in host process is asked to do on its instance, one letter each.
  enum HostRequest : char {
    kSaveProperties = 'p',     // answer: the stored properties as records
    kRestoreProperties = 'r',  // argument: records
    kSaveTurtle = 't',         // answer: stateAsTurtle
    kRestoreTurtle = 'T',      // argument: the Turtle text
    kRestoreFile = 'f',        // argument: the path
    kLoadPreset = 'P',         // argument: the preset's URI
    kLoadDefault = 'd',
    kSampleRate = 's',    // argument: the rate, a double
    kNominalBlock = 'n',  // argument: the frames, a uint32
  };

  // The MIDI the plug-in received in the last block (for tests that check timing and order).
  const MidiBlock& lastBlockMidi() const noexcept { return midi_; }
  // Everything the plug-in's MIDI input received in the last block, as it received it (the MIDI,
  // time positions and editor messages); null without such an input. For tests.
  const LV2_Atom_Sequence* lastAtomInput() const noexcept;

  // The plug-in's own editor, both ways and lock-free (main thread; the audio thread moves the
  // messages each block). sendEditorEvent queues an atom (header and body) for the plug-in's
  // atom control input; false when the queue is full. While an editor is attached, every event
  // of the plug-in's atom outputs and every change of a control output (as an atom:Float) is
  // kept for readPluginEvent, which gives the next one and its port index (0 when none).
  bool sendEditorEvent(const LV2_Atom& atom) noexcept;
  std::uint32_t readPluginEvent(std::uint32_t* port, void* buffer, std::uint32_t capacity) noexcept;
  void setEditorAttached(bool attached) noexcept { editorAttached_.store(attached); }

 private:
  AudioUnit() = default;
  struct Port {
    enum Kind { audioIn, audioOut, controlIn, controlOut, atomIn, atomOut, cv, other } kind = other;
    std::string symbol;
    int controlIndex = -1;      // control inputs: index into controlTargets_
    int bufferIndex = -1;       // index into audioBuffers_ or atomBuffers_
    float forwarded = NAN;      // control outputs: the value last given to the editor
    float defaultValue = 0.0f;  // control inputs
  };
  void findPorts();     // the port table and buffers, once
  void connectPorts();  // the instance's ports to them, at every instantiation
  // Connects, activates and starts the worker for instance_; endInstance undoes it all.
  void startInstance();
  void endInstance();
  void runWorkerThread();
  // Keeps run() from being called (the audio thread renders silence for this instrument) while
  // the main thread restores a state; false when a block in progress did not end within a second.
  bool suspendRun();
  void resumeRun() { runSuspended_.store(false); }
  bool applyState(LilvState* state, const std::string& what);
  // The plug-in's state interface, saving to `store` or restoring from `retrieve` (restoring
  // suspends run()); false when it has none or the suspension failed.
  bool saveProperties(LV2_State_Store_Function store, LV2_State_Handle handle);
  bool restoreProperties(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle);
  // Out of process, not the audio thread: the host does `request` (answerRequest there) on its
  // instance, given this side's control values; a request that may change them brings the
  // host's back. False when the host refused or no longer answers.
  bool askPluginProcess(HostRequest request, const std::string& argument,
                        std::string* answer = nullptr);
  // Out of process, any thread: asks the host for its stored properties and keeps them; the
  // ones kept last when it does not answer.
  PropertyDictionary reportedProperties();
  std::mutex propertiesMutex_;
  PropertyDictionary lastProperties_;  // guarded by propertiesMutex_
  const LV2_State_Interface* stateInterface() const;
  PELMA_HOT void writeAtomInput(std::uint32_t frames) noexcept;
  void writeTimePosition(LV2_Atom_Forge& forge, std::uint32_t frames) noexcept;
  PELMA_HOT void deliverWorkerResponses() noexcept;
  // Where each port's data lies in the block shared with a plug-in host process.
  void layoutSharedBlock();
  // Application's audio thread: hands the block to the plug-in host and takes its answer; false
  // (nothing written) when the answer did not come in time or the host no longer works.
  PELMA_HOT bool exchangeWithPluginProcess(std::uint32_t frames, float* const* into) noexcept;
  PELMA_HOT void resetAtomOutputs() noexcept;
  PELMA_HOT void silence(std::uint32_t frames, float* const* into) noexcept;
  void postInvalidation();
  std::unique_ptr<PluginProcess> process_;
  std::vector<std::uint32_t> sharedOffsets_;  // by port index; 0: the port does not cross
  std::size_t sharedBlockSize_ = 0;
  std::uint32_t blockNumber_ = 0;   // audio thread: the last block handed over
  std::uint32_t missedFrames_ = 0;  // audio thread: frames since the host last answered
  // Audio thread: the input events of blocks not handed over (the host was still busy), or, in
  // the plug-in host process, of blocks silenced by a restore; an atom sequence given at the start
  // of the next block.
  std::vector<std::uint8_t> carriedInput_;
  std::atomic<bool> realTime_{true};
  PELMA_HOT void silenceNonFiniteOutput(std::uint32_t frames, float* const* into) noexcept;
  bool nonFiniteReported_ = false;  // audio thread
  // Connects the audio outputs to `into`'s channels, or back to the unit's own buffers.
  PELMA_HOT void connectOutputs(float* const* into) noexcept;

  std::shared_ptr<Lv2World> world_;
  const LilvPlugin* plugin_ = nullptr;
  LilvInstance* instance_ = nullptr;
  std::unique_ptr<Lv2Host> host_;
  std::string name_;
  std::string uri_;
  double sampleRate_ = 0.0;
  std::uint32_t maxFrames_ = 0;

  std::vector<Port> ports_;
  // Control ports' values, the one the plug-in reads or writes, side by side (one per port): a
  // plug-in may read every control at every run, and they then share a few cache lines.
  std::vector<float> portValues_;
  std::vector<std::unique_ptr<std::atomic<float>>> controlTargets_;  // one per control input
  std::atomic<bool> controlsChanged_{true};  // a target changed since the audio thread copied them
  std::vector<std::vector<float>> audioBuffers_;
  std::vector<float> silence_;
  std::vector<std::vector<std::uint8_t>> atomBuffers_;
  std::vector<int> atomOutputBuffers_;  // the atom outputs' buffers, reset every block
  // The MIDI input's atom buffer (null without one), kept at hand: the audio thread writes it
  // every block.
  std::vector<std::uint8_t>* midiInputBuffer_ = nullptr;
  bool acceptsTimePosition_ = false;
  int outputPorts_[2] = {-1, -1};  // the first two audio outputs' port indices (mono: one twice)
  bool outputsElsewhere_ = false;  // audio thread: the outputs are connected to a caller's buffers

  LV2_Atom_Forge forge_{};
  struct {
    LV2_URID midiEvent, timePosition, beatsPerMinute, beatsPerBar, beatUnit, speed, frame, bar,
        barBeat, beat;
  } urids_{};
  LV2_URID chunkType_ = 0;
  std::vector<std::uint8_t> responseBuffer_;

  // The queues into and out of the audio thread, named by direction. MIDI comes from any thread
  // (MIDI inputs, the keyboard, the network) into one lock-free multi-producer queue; the
  // editor's atoms come from the main thread. beginBlock and writeAtomInput merge both into the
  // block's input sequence, the editor's first, at frame 0.
  MpscQueue<MidiEvent, 1024> midiToAudio_;
  std::atomic<bool> releaseAllNotes_{false};
  MidiBlock midi_;
  SnapshotPublisher<MusicalContextBlock> contextBlock_{std::make_unique<MusicalContextBlock>()};
  SnapshotPublisher<MusicalContextBlock>::Reader contextReader_;
  // Audio thread: the transport this block, and what the plug-in was last told.
  TransportPosition transport_;
  TransportPosition sentPosition_{false, -1.0, 0.0};  // never a real position: the first is sent
  std::uint32_t previousFrames_ = 0;
  double sentTempo_ = 0.0, sentNumerator_ = 0.0;
  std::int64_t sentDenominator_ = 0;

  // MIDI learn's bindings, as the audio thread reads them: by controller number, the control
  // input's index into controlTargets_ and its port, or -1.
  struct ControllerTable {
    ControllerTable() { binding.fill(-1); }
    std::array<int, 128> binding;
    std::vector<int> controlIndex;
    std::vector<ControlPort> ports;
  };
  // Audio thread: true when `event` is a bound controller's message, which then set its control.
  PELMA_HOT bool applyController(const ControllerTable* table, const MidiEvent& event) noexcept;
  SnapshotPublisher<ControllerTable> controllerTable_{std::make_unique<ControllerTable>()};
  SnapshotPublisher<ControllerTable>::Reader controllerReader_;
  std::atomic<bool> listening_{false};
  std::atomic<int> heardController_{-1};

  std::atomic<bool> runSuspended_{false}, inRun_{false};
  std::thread workerThread_;
  std::atomic<bool> workerRunning_{false};

  // The editor's messages (see sendEditorEvent): each a port index and then an atom.
  PELMA_HOT void writeEditorEvents(LV2_Atom_Forge& forge) noexcept;
  PELMA_HOT void forwardPluginEvents() noexcept;
  static constexpr std::uint32_t kEditorMessageSize = 32768;
  ByteRing guiToAudio_{1 << 16};  // main thread -> audio thread: the editor's atoms
  ByteRing audioToGui_{1 << 18};  // audio thread -> main thread: the plug-in's outputs
  std::vector<std::uint8_t> editorScratch_ = std::vector<std::uint8_t>(kEditorMessageSize);
  std::atomic<bool> editorAttached_{false};
};

// Sends one MIDI channel message to an instrument: it reaches the plug-in in the next audio block
// at `offsetSampleFrame` (after the frame a JACK message arrived at, see MidiArrival.h). Any
// thread; never blocks. Returns 0, or -1 when there is no instance or its queue is full (the
// message is dropped).
inline int MusicDeviceMIDIEvent(AudioComponentInstance instance, std::uint32_t status,
                                std::uint32_t data1, std::uint32_t data2,
                                std::uint32_t offsetSampleFrame) noexcept {
  if (!instance || status > 0xFF) return -1;
  // Values above a byte stay above 127 (not wrapped), for the plug-in boundary to clamp.
  const auto byte = [](std::uint32_t value) {
    return static_cast<std::uint8_t>(value > 0xFF ? 0xFF : value);
  };
  return instance->sendMIDIEvent(byte(status), byte(data1), byte(data2),
                                 offsetSampleFrame + midiArrivalFrame)
             ? 0
             : -1;
}

}  // namespace platform
