// Transcription of real videos: speech made with flite in an ffmpeg video, read back by PocketSphinx,
// and the ways a video gives no transcript, each leaving nothing in the temporary directory.
#include "Media/Transcriber.h"
#include "Platform/Regex.h"

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
    bool temporaryIsEmpty() const { return std::filesystem::is_empty(temporary.path()); }

    static inline TemporaryDirectory* videos = nullptr;
    static inline std::filesystem::path speech;
    static inline std::filesystem::path silent;
    static inline std::filesystem::path mute;

    TemporaryDirectory temporary;
    FakeProcess process;
};

} // namespace

TEST_F(TranscriberTest, SpeechInAVideoBecomesPunctuatedSentencesInAnyLocale) {
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
    EXPECT_EQ(process.count("ffmpeg"), 1);
    EXPECT_TRUE(temporaryIsEmpty()) << "the audio file is removed";
    // An unknown locale falls back to English.
    for (const std::string locale : {"xx-YY", "en_US.UTF-8", "", "de-DE"}) {
        EXPECT_EQ(Transcriber::transcribe(speech, locale, setup()), transcript) << locale;
    }
}

TEST_F(TranscriberTest, VideosWithoutWordsOrAWorkingFfmpegGiveNoTranscriptAndLeaveNoFile) {
    std::ofstream(videos->path() / "notes.mp4") << "not a video";
    for (const auto& video : {mute, silent, videos->path() / "missing.mp4", videos->path() / "notes.mp4"}) {
        EXPECT_EQ(Transcriber::transcribe(video, "en-US", setup()), std::nullopt) << video;
    }
    EXPECT_EQ(process.count("ffmpeg"), 4);
    for (const auto fault :
         {FakeProcess::Fault::exitsNonZero, FakeProcess::Fault::timesOut, FakeProcess::Fault::missing}) {
        process.inject("ffmpeg", fault);
        EXPECT_EQ(Transcriber::transcribe(speech, "en-US", setup()), std::nullopt);
    }
    EXPECT_TRUE(temporaryIsEmpty());
}

TEST_F(TranscriberTest, WithoutItsModelsTheRecogniserDoesNoWork) {
    Transcriber::Setup empty = setup();
    empty.models = temporary.path() / "models";
    EXPECT_EQ(Transcriber::transcribe(speech, "en-US", empty), std::nullopt);

    // A model directory without its language model is not a recogniser either.
    TemporaryDirectory partial;
    std::filesystem::create_directories(partial / "en-us" / "en-us");
    std::ofstream(partial / "en-us" / "en-us" / "mdef") << "";
    std::ofstream(partial / "en-us" / "cmudict-en-us.dict") << "hello HH AH L OW\n";
    empty.models = partial.path();
    EXPECT_EQ(Transcriber::transcribe(speech, "en-US", empty), std::nullopt);
    EXPECT_EQ(process.count("ffmpeg"), 0) << "nothing is extracted without a recogniser";
}

TEST_F(TranscriberTest, TheAudioTrackIsAPrivateFileNamedByAnUpperCaseUUID) {
    const auto audio = Transcriber::audioTrack(speech, setup());
    ASSERT_TRUE(audio.has_value());
    EXPECT_EQ(audio->parent_path(), temporary.path());
    const Regex name("^kp-audio-[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[0-9A-F]{4}-[0-9A-F]{12}\\.wav$");
    EXPECT_TRUE(name.firstMatch(audio->filename().string())) << *audio;
    EXPECT_EQ(std::filesystem::status(*audio).permissions(), std::filesystem::perms(0600)) << "private";
    std::filesystem::remove(*audio);

    EXPECT_EQ(Transcriber::audioTrack(mute, setup()), std::nullopt);
    EXPECT_TRUE(temporaryIsEmpty());
}
