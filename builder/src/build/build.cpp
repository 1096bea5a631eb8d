#include "build/build.hpp"

#include "bank/writer.hpp"
#include "build/bank_output.hpp"
#include "build/c_header.hpp"
#include "encode/encoder.hpp"
#include "support/moments.hpp"
#include "support/worker_memory.hpp"
#include "support/worker_pool.hpp"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <iterator>
#include <numeric>

#include <sys/stat.h>

namespace tarnok {

namespace {

// Failed sounds that the report on the bank names.
constexpr size_t kFaultsInReport = 5;

constexpr int64_t kKeepEvery = 1200; // seconds; see Cache::tidy for how long an entry is safe

// Where temporary files may lie, best first: the last one isn't memory where /tmp is.
std::vector<std::string> temporaryFolders(std::string first)
{
    return {std::move(first), "/tmp", "/var/tmp"};
}

std::string_view withoutExtension(std::string_view path)
{
    const size_t dot = path.rfind('.');
    const size_t start = path.size() - baseName(path).size();
    return dot == std::string_view::npos || dot <= start ? path : path.substr(0, dot);
}

// Bytes of a file times this are about the bytes of its samples.
double expansion(std::string_view path)
{
    const std::string_view extension = path.substr(std::min(path.size(), path.rfind('.') + 1));
    const auto is = [extension](std::string_view other) {
        return extension.size() == other.size() && strncasecmp(extension.data(), other.data(), other.size()) == 0;
    };
    constexpr std::string_view kLossy[] = {"ogg", "opus", "mp3", "m4a", "aac", "wma", "spx", "mp2"};
    if (std::any_of(std::begin(kLossy), std::end(kLossy), is))
        return 10;
    return is("flac") ? 2 : 1;
}

} // namespace

// The files of a build under their temporary names.
struct Build::Outputs
{
    std::optional<AtomicOutput> bank;
    std::optional<AtomicOutput> header; // none: not wanted
};

// Hands the encoded sounds to the writer of the bank, one at a time.
class Build::Stored final : public bank::StoredSounds
{
public:
    Stored(Build& build)
        : mBuild(build)
    { }

    bank::Result<bank::StoredSound> open(size_t index) override
    {
        if (onCopy)
            onCopy(index);
        const std::optional<StoredPlace>& place = mBuild.mPlaces[index];
        mInSource.reset();
        if (!place)
            return bank::StoredSound{std::make_shared<bank::MemorySource>(bank::serialise(bank::emptySound())), 0, 0};
        if (place->inSource)
            return openSource(index, *place);
        std::shared_ptr<const FilePart> part = place->spilled;
        if (!part) {
            uint64_t size = 0;
            auto file = std::make_shared<FileDescriptor>(mBuild.mCache.reopen(place->key, &size));
            if (*file) {
                part = std::make_shared<FilePart>(std::move(file), 0, size);
            } else if (Status status = mBuild.encodeLost(index); status) {
                part = place->spilled;
            } else {
                mFault = status.fault();
                return bank::Error::Io;
            }
        }
        return bank::StoredSound{part, sizeof(EntryHeader) + place->dataBytes, sizeof(EntryHeader)};
    }

    // The whole record of a sound, which must have been stored.
    bank::Result<bank::Sound> sound(size_t index)
    {
        const std::optional<StoredPlace>& place = mBuild.mPlaces[index];
        if (!place)
            return bank::emptySound();
        if (!place->record.empty())
            return bank::deserialise(place->record);
        const bank::Result<bank::StoredSound> stored = open(index);
        if (!stored)
            return stored.error();
        if (stored->recordOffset > stored->source->size())
            return bank::Error::Damaged;
        std::vector<uint8_t> record(stored->source->size() - stored->recordOffset);
        if (const bank::Error error = stored->source->readAt(stored->recordOffset, record); error != bank::Error::None)
            return error;
        return bank::deserialise(record);
    }

    const Fault& fault() const { return mFault; }

    // The sound at which writing failed, if its data is in its source file.
    std::optional<size_t> failedSource() const { return mInSource; }

private:
    bank::Result<bank::StoredSound> openSource(size_t index, const StoredPlace& place)
    {
        mInSource = index;
        FileStamp stamp;
        Result<FileDescriptor> file = openForReading(pathsOf(mBuild.mRequest.subsounds[index]).front(), &stamp);
        if (!file)
            return bank::Error::Io;
        return bank::StoredSound{
            std::make_shared<bank::MemorySource>(place.record), 0, place.inSource->dataOffset,
            std::make_shared<FilePart>(std::make_shared<FileDescriptor>(std::move(*file)), 0, stamp.size)};
    }

    Build& mBuild;
    Fault mFault;
    std::optional<size_t> mInSource;
};

Build::Build(const LibrarySettings& library, const BuildRequest& request, ProgressQueue& queue, Remarks& remarks,
             std::stop_token stop)
    : mLibrary(library)
    , mRequest(request)
    , mOrder(request.order)
    , mQueue(queue)
    , mRemarks(remarks)
    , mStop(std::move(stop))
    , mCache(library.cacheDirectory, !has(TARNOK_INIT_REBUILD), remarks)
    , mIndex(mCache.indexFolder())
    , mSources(mIndex, !has(TARNOK_INIT_REBUILD))
    , mMeans{mEngine, mCache, mSources, remarks, temporaryFolders(library.cacheDirectory), mStop}
    , mPlaces(request.subsounds.size())
    , mKeptAt(time(nullptr))
    , mDone(request.subsounds.size())
{
    const SpillFiles spills(temporaryFolders(folderOf(request.outputFile)));
    for (unsigned worker = 0; worker < library.threadCount; ++worker)
        mBuilders.emplace_back(mMeans, spills);
}

Status Build::run()
{
    Status status;
    try {
        status = runPhases();
    } catch (const std::bad_alloc&) {
        status = outOfMemory();
    }
    if (!status && status.fault().code != TARNOK_ERR_CANCELLED)
        reportBank(TARNOK_STATE_FAILED, status.fault());
    return status;
}

Status Build::runPhases()
{
    Outputs outputs;
    if (Status status = openOutputs(&outputs); !status)
        return status;
    Result<KessSystem> engine = startEngine();
    if (!engine)
        return engine.fault();
    mEngine = std::move(*engine);
    if (Status status = countWorkers(); !status)
        return status;
    loadModule();

    const std::vector<size_t> order = longestFirst();
    runOnWorkers(mWorkers, order.size(), [&](size_t job, unsigned worker) {
        if (!mStop.stop_requested())
            buildSound({order[job], worker});
    });
    mIndex.save();
    mCache.saveRecords(mStop);
    if (Status status = verdict(); !status)
        return status;

    reportBank(TARNOK_STATE_WRITING);
    if (Status status = writeBank(&outputs); !status)
        return status;
    mCache.tidy(mStop);
    return {};
}

// Before anything is encoded, so that a folder that can't be written is told at once and not after hours.
Status Build::openOutputs(Outputs* outputs) const
{
    if (Status status = refuseSource(mRequest.outputFile); !status)
        return status;
    Result<AtomicOutput> bank = AtomicOutput::create(mRequest.outputFile);
    if (!bank)
        return bank.fault();
    outputs->bank.emplace(std::move(*bank));
    const std::string headerFile = std::string(withoutExtension(mRequest.outputFile)) + ".h";
    if (!has(TARNOK_INIT_CREATE_HEADER)) {
        AtomicOutput::removeAbandoned(headerFile);
        return {};
    }
    if (headerFile == mRequest.outputFile)
        return invalid("the bank and its C header would have the same name");
    // Refuses what is no file, which must not be read.
    Result<AtomicOutput> header = AtomicOutput::create(headerFile);
    if (!header)
        return header.fault();
    if (Status status = checkHeader(headerFile); !status)
        return status;
    outputs->header.emplace(std::move(*header));
    return {};
}

Status Build::countWorkers()
{
    const auto most = unsigned(std::min<size_t>(mLibrary.threadCount, mRequest.subsounds.size()));
    const Result<WorkerCount> workers = affordableWorkers(most, memoryLeft());
    if (!workers)
        return workers.fault();
    mWorkers = workers->count;
    if (!workers->remark.empty())
        mRemarks.post(workers->remark);
    return {};
}

// Without its module every sound of the bank fails, and each says so.
void Build::loadModule()
{
    const auto codec = bank::Codec(mOrder.format);
    if (!EncoderModule::encodes(codec))
        return;
    Result<std::shared_ptr<const EncoderModule>> module = EncoderModule::load(codec);
    if (module)
        mOrder.module = std::move(*module);
    else
        mModuleFault = module.fault();
}

// A slip on a command line must not cost a recording.
Status Build::refuseSource(const std::string& outputFile) const
{
    struct stat output = {};
    if (stat(outputFile.c_str(), &output) != 0)
        return {};
    for (size_t index = 0; index < mRequest.subsounds.size(); ++index) {
        for (const std::string& path : pathsOf(mRequest.subsounds[index])) {
            struct stat source = {};
            if (stat(path.c_str(), &source) == 0 && source.st_dev == output.st_dev && source.st_ino == output.st_ino)
                return invalid(outputFile + ": this is one of the bank's own source files");
        }
    }
    return {};
}

std::vector<size_t> Build::longestFirst() const
{
    std::vector<double> weights;
    weights.reserve(mRequest.subsounds.size());
    for (size_t index = 0; index < mRequest.subsounds.size() && !mStop.stop_requested(); ++index) {
        double weight = 0;
        for (const std::string& path : pathsOf(mRequest.subsounds[index])) {
            if (const Result<FileStamp> stamp = stampOf(path))
                weight += double(stamp->size) * expansion(path);
        }
        weights.push_back(weight);
    }
    weights.resize(mRequest.subsounds.size());
    std::vector<size_t> order(weights.size());
    std::iota(order.begin(), order.end(), size_t(0));
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t left, size_t right) { return weights[left] > weights[right]; });
    return order;
}

void Build::buildSound(const Task& task) noexcept
{
    try {
        Result<StoredPlace> place = tryToBuild(task);
        if (!place) {
            soundFailed(task, place.fault());
            return;
        }
        mPlaces[task.index] = std::move(*place);
        mDone[task.index] = true;
        report(task, TARNOK_STATE_FINISHED);
        keepUsedEntries();
    } catch (...) {
        // Not even the report could be stored. If it was that of a failure, verdict() finds that the sound has no
        // place.
    }
}

Result<StoredPlace> Build::tryToBuild(const Task& task)
{
    if (mModuleFault)
        return *mModuleFault;
    const auto tell = [this, &task](TARNOK_STATE state) {
        report(task, state);
    };
    try {
        return mBuilders[task.worker].build(mOrder, mRequest.subsounds[task.index], task.again, tell);
    } catch (const std::bad_alloc&) {
        return faultOf(bank::Error::Memory, firstFile(mRequest.subsounds[task.index]));
    } catch (const std::exception& exception) {
        return Fault{TARNOK_ERR_ENCODER,
                     firstFile(mRequest.subsounds[task.index]) + ": the encoder failed (" + exception.what() + ")"};
    }
}

// Somebody has emptied the cache, or a part of it, since these sounds were found or stored there. Where it was emptied
// once it may be again, so this time they are put where nobody else comes. The bank has their facts already, so they
// can no longer become others.
Status Build::encodeLost(size_t first)
{
    std::vector<size_t> lost;
    for (size_t index = first; index < mPlaces.size(); ++index) {
        const std::optional<StoredPlace>& place = mPlaces[index];
        if (place && place->inCache() && !mCache.reopen(place->key))
            lost.push_back(index);
    }
    // The first may have come back meanwhile, by another build.
    if (lost.empty() || lost.front() != first)
        lost.insert(lost.begin(), first);
    std::optional<Fault> fault;
    encodeAgain(lost, [&](const Task& task, Result<StoredPlace> place) {
        const std::lock_guard lock(mMutex);
        if (!place)
            fault = place.fault();
        else if (place->key == mPlaces[task.index]->key)
            mPlaces[task.index] = std::move(*place);
        else
            fault = Fault{TARNOK_ERR_FILE_OS,
                          firstFile(mRequest.subsounds[task.index])
                              + ": another program has changed this sound during the build"};
    });
    if (mStop.stop_requested())
        return cancelled();
    if (fault)
        return *fault;
    if (!mPlaces[first]->spilled)
        return outOfMemory();
    return {};
}

// A sound that can no longer be built fails like one that never could.
Status Build::encodeChanged(size_t found, bool all)
{
    std::vector<size_t> changed;
    for (size_t index = 0; index < mPlaces.size() && !mStop.stop_requested(); ++index) {
        const std::optional<StoredPlace>& place = mPlaces[index];
        if (!place || !place->inSource)
            continue;
        const Result<FileStamp> stamp = stampOf(pathsOf(mRequest.subsounds[index]).front());
        if (all || index == found || !stamp || *stamp != place->inSource->stamp)
            changed.push_back(index);
    }
    const ContentHash expected = mPlaces[found]->key;
    encodeAgain(changed, [&](const Task& task, Result<StoredPlace> place) {
        if (place) {
            mPlaces[task.index] = std::move(*place);
            return;
        }
        mPlaces[task.index].reset();
        soundFailed(task, place.fault());
    });
    if (mStop.stop_requested())
        return cancelled();
    if (mPlaces[found] && mPlaces[found]->inSource)
        return outOfMemory();
    // The same content with another checksum: it isn't the file that was wrong.
    if (mPlaces[found] && mPlaces[found]->key == expected)
        mCache.forgetRecord(expected);
    mIndex.save();
    mCache.saveRecords(mStop);
    return verdict();
}

void Build::encodeAgain(std::span<const size_t> sounds,
                        const std::function<void(const Task& task, Result<StoredPlace> place)>& take)
{
    runOnWorkers(mWorkers, sounds.size(), [&](size_t job, unsigned worker) {
        if (mStop.stop_requested())
            return;
        try {
            const Task task{sounds[job], worker, true};
            take(task, tryToBuild(task));
        } catch (...) {
            // Not even the fault could be stored. The sound is where it was, and that is found by the caller.
        }
    });
}

void Build::soundFailed(const Task& task, const Fault& fault)
{
    if (fault.code == TARNOK_ERR_CANCELLED)
        return;
    {
        const std::lock_guard lock(mMutex);
        ++mFailedCount;
        mFirstFaults.emplace(task.index, fault);
        if (mFirstFaults.size() > kFaultsInReport)
            mFirstFaults.erase(std::prev(mFirstFaults.end()));
    }
    if (has(TARNOK_INIT_ALWAYS))
        mQueue.post(int(task.index), int(task.worker), TARNOK_STATE_FAILED, fault.code, fault.text);
}

// A build may last longer than the time for which a used entry is safe from another build's tidying.
void Build::keepUsedEntries()
{
    const int64_t now = time(nullptr);
    int64_t keptAt = mKeptAt;
    if (now - keptAt < kKeepEvery || !mKeptAt.compare_exchange_strong(keptAt, now))
        return;
    for (size_t index = 0; index < mPlaces.size() && !mStop.stop_requested(); ++index) {
        if (mDone[index] && mPlaces[index]->inCache())
            mCache.keep(mPlaces[index]->key);
    }
}

Status Build::verdict() const
{
    if (mStop.stop_requested())
        return cancelled();
    const auto placed =
        size_t(std::count_if(mPlaces.begin(), mPlaces.end(), [](const auto& place) { return bool(place); }));
    if (placed + mFailedCount < mPlaces.size())
        return outOfMemory();
    if (mFailedCount == 0)
        return {};
    if (!has(TARNOK_INIT_IGNORE_ERRORS))
        return Fault{mFirstFaults.begin()->second.code, failedSounds()};
    if (placed == 0)
        return Fault{TARNOK_ERR_CANNOT_CONTINUE, failedSounds()};
    return {};
}

// Each of them was reported when it failed, which may be long ago.
std::string Build::failedSounds() const
{
    std::string text = mFailedCount == mPlaces.size()
        ? "none of the sounds could be built"
        : std::to_string(mFailedCount) + " of " + std::to_string(mPlaces.size()) + " sounds could not be built";
    for (const auto& [index, fault] : mFirstFaults)
        text += "\n  " + std::to_string(index) + ": " + fault.text;
    if (mFailedCount > mFirstFaults.size())
        text += "\n  and " + std::to_string(mFailedCount - mFirstFaults.size()) + " more";
    return text;
}

// All sounds are compared with their checksums on their way into the bank. What was changed in its source file since it
// was read is encoded and put aside, and the bank is begun anew: a bank of the moment in which each file was last seen,
// as ever. Where files go on changing, one after the other, all of them are put aside in the end.
Status Build::writeBank(Outputs* outputs)
{
    constexpr int kAttemptsInSource = 3;
    for (int attempt = 1;; ++attempt) {
        Stored stored(*this);
        Status status = writeSounds(outputs, stored);
        if (status)
            break;
        const std::optional<size_t> source = stored.failedSource();
        const bool isElsewhere = outputs->bank->fault().code != TARNOK_OK || status.fault().code == TARNOK_ERR_MEMORY;
        if (!source || isElsewhere || mStop.stop_requested())
            return status;
        if (Status again = encodeChanged(*source, attempt >= kAttemptsInSource); !again)
            return again;
        if (Status again = outputs->bank->restart(); !again)
            return again;
    }
    if (Status status = outputs->bank->finish(mStop); !status)
        return status;
    if (Status status = writeHeader(outputs); !status)
        return status;

    // Both files are complete on the disk by now. The bank comes first, so that no header is newer than its bank.
    if (mStop.stop_requested())
        return cancelled();
    if (Status status = outputs->bank->commit(); !status)
        return status;
    return outputs->header ? outputs->header->commit() : Status();
}

Status Build::writeSounds(Outputs* outputs, Stored& stored)
{
    const unsigned flags = mRequest.order.flags;
    const bank::Codec codec = bank::Codec(mRequest.order.format);
    bank::BankWriter writer({.format = codec,
                             .quality = mRequest.order.quality,
                             .guid = !(flags & TARNOK_BUILD_NOGUID),
                             .names = !(flags & TARNOK_BUILD_TNB5_DONTWRITENAMES)});
    const auto failure = [&](bank::Error error) {
        if (outputs->bank->fault().code != TARNOK_OK)
            return outputs->bank->fault();
        return stored.fault().code != TARNOK_OK ? stored.fault() : faultOf(error, baseName(mRequest.outputFile));
    };

    for (size_t index = 0; index < mPlaces.size(); ++index) {
        if (mStop.stop_requested())
            return cancelled();
        const bank::Result<bank::Sound> sound = stored.sound(index);
        if (!sound)
            return failure(sound.error());
        writer.add(soundName(mRequest.subsounds[index]), *sound);
    }
    const bank::Error error = mRequest.encryptionKey
        ? writer.writeEncrypted(*outputs->bank, stored, *mRequest.encryptionKey, mStop)
        : writer.write(*outputs->bank, stored, mStop);
    return error == bank::Error::None ? Status() : failure(error);
}

Status Build::writeHeader(Outputs* outputs) const
{
    if (!outputs->header)
        return {};
    std::vector<std::string_view> names;
    for (const TARNOK_SUBSOUND& subsound : mRequest.subsounds)
        names.push_back(soundName(subsound));
    const std::string text = cHeaderText(withoutExtension(baseName(mRequest.outputFile)), names);
    if (outputs->header->write({reinterpret_cast<const uint8_t*>(text.data()), text.size()}) != bank::Error::None)
        return outputs->header->fault();
    return outputs->header->finish(mStop);
}

void Build::report(const Task& task, TARNOK_STATE state)
{
    if (has(TARNOK_INIT_ALWAYS) && !task.again)
        mQueue.post(int(task.index), int(task.worker), state);
}

void Build::reportBank(TARNOK_STATE state, const Fault& fault)
{
    if (has(TARNOK_INIT_ALWAYS))
        mQueue.post(-1, -1, state, fault.code, fault.text);
}

} // namespace tarnok
