// Transcription of real videos: speech made with flite in an ffmpeg video, read back by PocketSphinx,
// and the ways a video gives no transcript, each leaving nothing in the temporary directory.
#include "Media/Transcriber.h"

#include "support/FakeProcess.h"
#include "support/SpeechVideo.h"
#include "support/TemporaryDirectory.h"
#include "support/TextMetrics.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace keepery;
using keepery::testing::FakeProcess;
using keepery::testing::Soundtrack;
using keepery::testing::TemporaryDirectory;

namespace {

const std::string spoken = "Please remember to buy fresh bread and milk on the way home. "
                           "The meeting with the design team moves to Thursday afternoon.";
const std::vector<std::string> keyWords = {"remember", "bread", "milk",     "home",     "meeting",
                                           "design",   "team",  "thursday", "afternoon"};

std::size_t filesIn(const std::filesystem::path& directory) {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()));
}

class TranscriberTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        videos = new TemporaryDirectory();
        speech = keepery::testing::makeVideo(videos->path(), "speech.mp4", Soundtrack::speech, spoken);
        silent = keepery::testing::makeVideo(videos->path(), "silent.mp4", Soundtrack::silence);
        mute = keepery::testing::makeVideo(videos->path(), "mute.mp4", Soundtrack::none);
    }
    static void TearDownTestSuite() {
        delete videos;
        videos = nullptr;
    }

    Transcriber::Setup setup() { return {.process = &process, .temporaryDirectory = temporary.path()}; }

    static inline TemporaryDirectory* videos = nullptr;
    static inline std::filesystem::path speech;
    static inline std::filesystem::path silent;
    static inline std::filesystem::path mute;

    TemporaryDirectory temporary;
    FakeProcess process;
};

} // namespace

TEST_F(TranscriberTest, SpeechInAVideoBecomesPunctuatedSentences) {
    const auto transcript = Transcriber::transcribe(speech, "en-US", setup());
    ASSERT_TRUE(transcript.has_value());
    const auto words = keepery::testing::TextMetrics::words(*transcript);
    std::size_t found = 0;
    for (const std::string& key : keyWords) {
        found += std::count(words.begin(), words.end(), key) > 0 ? 1 : 0;
    }
    EXPECT_GE(found, keyWords.size() * 2 / 3) << *transcript;
    EXPECT_TRUE(std::isupper(static_cast<unsigned char>(transcript->front()))) << *transcript;
    EXPECT_TRUE(transcript->ends_with('.')) << *transcript;
    EXPECT_EQ(*transcript, std::string(*transcript).erase(0, transcript->find_first_not_of(" \n")));
    EXPECT_EQ(process.count("ffmpeg"), 1);
    EXPECT_EQ(filesIn(temporary.path()), 0u) << "the audio file is removed";
}

TEST_F(TranscriberTest, AnUnknownLocaleFallsBackToEnglish) {
    const auto english = Transcriber::transcribe(speech, "en-US", setup());
    for (const std::string locale : {"xx-YY", "en_US.UTF-8", "", "de-DE"}) {
        SCOPED_TRACE(locale);
        EXPECT_EQ(Transcriber::transcribe(speech, locale, setup()), english);
    }
}

TEST_F(TranscriberTest, VideosWithoutWordsGiveNoTranscriptAndLeaveNoFile) {
    EXPECT_EQ(Transcriber::transcribe(mute, "en-US", setup()), std::nullopt) << "no sound track";
    EXPECT_EQ(Transcriber::transcribe(silent, "en-US", setup()), std::nullopt) << "only silence";
    EXPECT_EQ(Transcriber::transcribe(videos->path() / "missing.mp4", "en-US", setup()), std::nullopt);
    const std::string notAVideo = "not a video";
    std::ofstream(videos->path() / "notes.mp4") << notAVideo;
    EXPECT_EQ(Transcriber::transcribe(videos->path() / "notes.mp4", "en-US", setup()), std::nullopt);
    EXPECT_EQ(process.count("ffmpeg"), 4);
    EXPECT_EQ(filesIn(temporary.path()), 0u);
}

TEST_F(TranscriberTest, AFailingOrMissingFfmpegGivesNoTranscriptAndLeavesNoFile) {
    for (const auto fault :
         {FakeProcess::Fault::exitsNonZero, FakeProcess::Fault::timesOut, FakeProcess::Fault::missing}) {
        process.inject("ffmpeg", fault);
        EXPECT_EQ(Transcriber::transcribe(speech, "en-US", setup()), std::nullopt);
        EXPECT_EQ(filesIn(temporary.path()), 0u);
    }
}

TEST_F(TranscriberTest, MissingModelsMeanNotAuthorizedAndNoWork) {
    EXPECT_TRUE(Transcriber::isAuthorized());
    EXPECT_TRUE(Transcriber::requestAuthorization());

    Transcriber::Setup empty = setup();
    empty.models = temporary.path() / "models";
    EXPECT_FALSE(Transcriber::isAuthorized(empty));
    EXPECT_FALSE(Transcriber::requestAuthorization(empty));
    EXPECT_EQ(Transcriber::transcribe(speech, "en-US", empty), std::nullopt);

    // A model directory without its language model is not a recogniser either.
    TemporaryDirectory partial;
    std::filesystem::create_directories(partial / "en-us" / "en-us");
    std::ofstream(partial / "en-us" / "en-us" / "mdef") << "";
    std::ofstream(partial / "en-us" / "cmudict-en-us.dict") << "hello HH AH L OW\n";
    empty.models = partial.path();
    EXPECT_FALSE(Transcriber::isAuthorized(empty));
    EXPECT_EQ(Transcriber::transcribe(speech, "en-US", empty), std::nullopt);
    EXPECT_EQ(process.count("ffmpeg"), 0) << "nothing is extracted without a recogniser";
}

TEST_F(TranscriberTest, TheAudioTrackIsA16KilohertzMonoWavFileNamedByAnUpperCaseUUID) {
    const auto audio = Transcriber::audioTrack(speech, setup());
    ASSERT_TRUE(audio.has_value());
    EXPECT_EQ(audio->parent_path(), temporary.path());
    const std::string name = audio->filename().string();
    ASSERT_TRUE(name.starts_with("kp-audio-") && name.ends_with(".wav")) << name;
    const std::string uuid = name.substr(9, name.size() - 13);
    ASSERT_EQ(uuid.size(), 36u) << name;
    for (std::size_t i = 0; i < uuid.size(); ++i) {
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        EXPECT_TRUE(dash ? uuid[i] == '-'
                         : std::isxdigit(static_cast<unsigned char>(uuid[i])) && !std::islower(uuid[i]))
            << name;
    }
    EXPECT_EQ(uuid[14], '4') << "a random UUID";
    std::ifstream in(*audio, std::ios::binary);
    std::string header(36, '\0');
    in.read(header.data(), 36);
    EXPECT_EQ(header.substr(0, 4), "RIFF");
    EXPECT_EQ(header.substr(8, 8), "WAVEfmt ");
    EXPECT_EQ(header[22], 1) << "mono";
    EXPECT_EQ(static_cast<unsigned char>(header[24]) | (static_cast<unsigned char>(header[25]) << 8), 16000);
    EXPECT_EQ(header[34], 16) << "bits per sample";
    EXPECT_EQ(std::filesystem::status(*audio).permissions(), std::filesystem::perms(0600)) << "private";
    std::filesystem::remove(*audio);

    EXPECT_EQ(Transcriber::audioTrack(mute, setup()), std::nullopt);
    EXPECT_EQ(filesIn(temporary.path()), 0u);
}
