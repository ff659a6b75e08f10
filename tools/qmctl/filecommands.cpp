#include "tools/qmctl/filecommands.h"

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "coreapi/qmci/audioinforecord.h"
#include "coreapi/qmci/videoinforecord.h"
#include "coreapi/qmutils/time/ntpdate.h"
#include "tools/qmctl/framereader.h"
#include "tools/qmctl/output.h"
#include "tools/qmctl/sha256.h"

// The commands that describe a media file.

namespace qmctl {

namespace {

using qm_ci::StreamInfo;

const char* typeOf(const StreamInfo* pStreamInfo) noexcept {
  switch (pStreamInfo != nullptr ? pStreamInfo->getType() : 0) {
    case StreamInfo::kVideo:
      return "video";
    case StreamInfo::kAudio:
      return "audio";
    case StreamInfo::kData:
      return "data";
    default:
      return "unknown";
  }
}

/// What a file says of a stream.
struct StreamFacts {
  const StreamInfo* pStreamInfo;  ///< null for a stream that isn't described
  std::uint32_t uFrames;
  JTime first;
  JTime last;
};

/// Of a file whose writer never ended, the facts are those of the frames that were seen.
StreamFacts factsOf(const FrameReader& reader, std::uint32_t uNumber, bool bFinished) {
  const FileStreamInfo& stream = *reader.getFileInfo().getStream(uNumber);
  StreamFacts facts{stream.getStreamInfo(), stream.getCount(), stream.getFirstDate(), stream.getLastDate()};
  if (!bFinished) {
    const FrameWalk::Seen& seen = reader.getSeen(uNumber);
    facts.uFrames = seen.uFrames;
    if (seen.uFrames > 0) {
      facts.first = JTime::fromMicroseconds(seen.ullFirst);
      facts.last = JTime::fromMicroseconds(seen.ullLast);
    }
  }
  return facts;
}

void describeForm(const StreamInfo& streamInfo, Json& object) {
  const auto description = streamInfo.getBytes().subspan(StreamInfo::kDescriptionAt);
  if (streamInfo.getType() == StreamInfo::kVideo) {
    const qm_ci::QMCIVideoInfo video(description);
    object["width"] = video.getWidth();
    object["height"] = video.getHeight();
  } else if (streamInfo.getType() == StreamInfo::kAudio) {
    const qm_ci::QMCIAudioInfo audio(description);
    object["samplingRate"] = audio.getSamplingRate();
    object["channels"] = audio.getNumberOfChannels();
    object["bitsPerSample"] = audio.getBitsPerSample();
  }
}

Json streamToJson(std::uint32_t uNumber, const StreamFacts& facts, const JParams& params) {
  Json object{{"number", uNumber}, {"type", typeOf(facts.pStreamInfo)}};
  std::uint32_t uNumerator = 0;
  std::uint32_t uDenominator = 0;
  if (facts.pStreamInfo != nullptr) {
    facts.pStreamInfo->getRate(uNumerator, uDenominator);
  }
  object["mime"] = facts.pStreamInfo != nullptr ? std::string(facts.pStreamInfo->getMIMEType()) : "";
  object["frames"] = facts.uFrames;
  object["firstDate"] = facts.first.getMicroseconds();
  object["lastDate"] = facts.last.getMicroseconds();
  object["rate"] = {uNumerator, uDenominator};
  object["parameters"] = toJson(params);
  if (facts.pStreamInfo != nullptr) {
    describeForm(*facts.pStreamInfo, object);
  }
  return object;
}

std::string dateText(std::uint64_t ullMicroseconds) {
  std::string sText;
  qm_utils::formatNtpDate(JTime::fromMicroseconds(ullMicroseconds), sText);
  return sText.empty() ? "@" + std::to_string(ullMicroseconds) : sText;
}

/// A rate a second, with two decimals where it needs them.
std::string rateText(const Json& rate) {
  const auto uNumerator = rate[0].get<std::uint64_t>();
  const auto uDenominator = rate[1].get<std::uint64_t>();
  if (uDenominator == 0) {
    return "-";
  }
  const std::uint64_t uHundredths = (uNumerator * 100 + uDenominator / 2) / uDenominator;
  const std::string sRest = std::to_string(100 + uHundredths % 100).substr(1);
  return std::to_string(uHundredths / 100) + (sRest == "00" ? "" : "." + sRest);
}

std::string formText(const Json& stream) {
  if (stream.contains("width")) {
    return stream["width"].dump() + "x" + stream["height"].dump();
  }
  if (stream.contains("channels")) {
    return stream["samplingRate"].dump() + " Hz, " + stream["channels"].dump() + " ch, " +
           stream["bitsPerSample"].dump() + " bit";
  }
  return "";
}

std::string paramsText(const JParams& params) {
  std::string sText;
  params.toTextSeparatedBy(sText, ", ");
  return sText;
}

void printFacts(Context& context, const std::string& sFile, const FileInfo& fileInfo, const Json& facts) {
  Table head(context.out, {"FILE", "FORMAT", "FINISHED", "DATA", "PARAMETERS"});
  head.add({sFile, facts["format"].get<std::string>(), facts["finished"].get<bool>() ? "yes" : "no",
            facts["dataSize"].dump(), paramsText(fileInfo.getParams())});
  head.finish();
  context.out << '\n';
  Table table(context.out,
              {"STREAM", "TYPE", "MIME", "FRAMES", "FIRST", "LAST", "RATE", "FORM", "PARAMETERS"});
  for (const Json& stream : facts["streams"]) {
    table.add({stream["number"].dump(), stream["type"].get<std::string>(), stream["mime"].get<std::string>(),
               stream["frames"].dump(), dateText(stream["firstDate"].get<std::uint64_t>()),
               dateText(stream["lastDate"].get<std::uint64_t>()), rateText(stream["rate"]), formText(stream),
               paramsText(fileInfo.getStream(stream["number"].get<std::uint32_t>())->getParams())});
  }
  table.finish();
}

void printInfo(Context& context, const std::string& sFile) {
  FrameReader reader(sFile, context.error);
  FileInfo& fileInfo = reader.getFileInfo();
  const bool bFinished = FrameWalk::isFinished(fileInfo);
  while (!bFinished && reader.next()) {
    // Only a walk tells what such a file holds.
  }
  Json facts{{"format", FrameWalk::formatOf(fileInfo)},
             {"finished", bFinished},
             {"dataSize", fileInfo.getDataSize()},
             {"parameters", toJson(fileInfo.getParams())},
             {"streams", Json::array()}};
  for (std::uint32_t uNumber = 1; uNumber <= fileInfo.getStreamCount(); ++uNumber) {
    facts["streams"].push_back(
        streamToJson(uNumber, factsOf(reader, uNumber, bFinished), fileInfo.getStream(uNumber)->getParams()));
  }
  if (context.settings.bJson) {
    writeJson(context.out, facts);
  } else {
    printFacts(context, sFile, fileInfo, facts);
  }
}

void printFrames(Context& context, const std::string& sFile) {
  FrameReader reader(sFile, context.error);
  Table table(context.out,
              {"STREAM", "NUMBER", "FRAME", "TIME", "SIZE", "KEY", "FLAGS", "PICTURE", "SHA256"});
  while (reader.next()) {
    const qm_ci::Bitstream& frame = reader.getFrame();
    const std::int64_t iNumber = reader.getInput().getLastNumber(reader.getStream());
    const bool bKey = reader.getInput().isKeyFrame();
    const std::string sHash = sha256Of(reader.getPayload());
    if (context.settings.bJson) {
      writeJson(context.out, {{"stream", reader.getStream()},
                              {"number", iNumber},
                              {"frameNumber", frame.getFrameNumber()},
                              {"time", frame.getTimestamp()},
                              {"size", reader.getPayload().size()},
                              {"key", bKey},
                              {"flags", frame.getAccessFlags()},
                              {"pictureType", frame.getPictureType()},
                              {"sha256", sHash}});
      continue;
    }
    table.add({std::to_string(reader.getStream()), std::to_string(iNumber),
               std::to_string(frame.getFrameNumber()), dateText(frame.getTimestamp()),
               std::to_string(reader.getPayload().size()), bKey ? "yes" : "no",
               std::to_string(frame.getAccessFlags()), std::to_string(frame.getPictureType()), sHash});
  }
  table.finish();
}

/// An entry as JSON; null for what its form doesn't hold. The short forms have no flags but the mark of a key
/// frame, which stands for the two that readers know one by.
Json entryToJson(std::uint32_t uStream, std::uint32_t uNumber, IndexType eType, const IndexEntry& entry) {
  constexpr int kKeyFlags = qm_ci::kAccessBit0 | qm_ci::kAccessBit1;
  const bool bMarked = (entry.ullPosition & index_layout::kKeyFrame) != 0;
  Json object{{"stream", uStream}, {"number", uNumber}};
  object["position"] = entry.ullPosition & ~index_layout::kKeyFrame;
  object["time"] = eType == FILEINDEX_POSITION ? Json() : Json(entry.ullTime);
  object["frameNumber"] = eType == FILEINDEX_CI ? Json(entry.ullFrameNumber) : Json();
  object["flags"] = eType == FILEINDEX_CI ? entry.dwFlags : bMarked ? kKeyFlags : 0U;
  return object;
}

void printIndex(Context& context, const std::string& sFile) {
  const FrameReader reader(sFile, context.error);
  const FileInfo& fileInfo = reader.getFileInfo();
  Table table(context.out, {"STREAM", "NUMBER", "POSITION", "TIME", "FRAME", "FLAGS"});
  bool bAny = false;
  for (std::uint32_t uStream = 1; uStream <= fileInfo.getStreamCount(); ++uStream) {
    const FileStreamInfo& stream = *fileInfo.getStream(uStream);
    std::optional<IndexEntry> entry;
    for (std::uint32_t uNumber = 0; (entry = stream.getEntry(uNumber)).has_value(); ++uNumber) {
      bAny = true;
      const Json object = entryToJson(uStream, uNumber, stream.getIndexType(), *entry);
      if (context.settings.bJson) {
        writeJson(context.out, object);
        continue;
      }
      const auto cell = [&](const char* szKey) {
        return object[szKey].is_null() ? "-" : object[szKey].dump();
      };
      table.add({cell("stream"), cell("number"), cell("position"),
                 object["time"].is_null() ? "-" : dateText(entry->ullTime), cell("frameNumber"),
                 cell("flags")});
    }
  }
  table.finish();
  if (!bAny && !context.settings.bJson) {
    context.error << "qmctl: the file has no index\n";
  }
}

using Print = void (*)(Context& context, const std::string& sFile);

void addDescription(CLI::App& file, Context& context, const char* szName, const char* szDescription,
                    Print print) {
  CLI::App& command =
      addCommand(file, szName, szDescription, "--json file " + std::string(szName) + " clip.asf");
  const auto pFile = std::make_shared<std::string>();
  addFileArgument(command, *pFile);
  command.callback(
      [&context, pFile, print] { context.todo = [&context, pFile, print] { print(context, *pFile); }; });
}

}  // namespace

void addFileArgument(CLI::App& command, std::string& sFile) {
  command.add_option("FILE", sFile, "A media file: ASF, AVI, WAVE or MP3")->required();
}

void addFileCommands(CLI::App& app, Context& context) {
  CLI::App& file =
      addCommand(app, "file", "Describes or mends a media file; needs no Manager", "file info clip.asf");
  file.require_subcommand(1);
  addDescription(file, context, "info", "What a file holds", printInfo);
  addDescription(file, context, "frames", "Each frame of a file, with the SHA-256 of its payload",
                 printFrames);
  addDescription(file, context, "index", "Each entry of a file's index", printIndex);
  addMendCommands(file, context);
}

}  // namespace qmctl
