#include "app/Server.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <string_view>
#include <utility>

#include "app/DescriptorLimit.h"
#include "app/SettingKeys.h"
#include "base/kx_debug_console.h"
#include "base/kx_err.h"
#include "client/ClientDoor.h"
#include "client/ExClientDoor.h"
#include "client/KeywordFileIndex.h"
#include "meta/ClientId.h"
#include "net/ControllerDoor.h"
#include "net/Door.h"
#include "platform/message_box.h"

namespace vorrim {

namespace {

constexpr int kProxyWait = 500;  // ms

// Message boxes go to standard error by themselves. Of the server's outputs only the log is to have
// them, and that whoever holds the current output.
std::atomic<ServerOutput*> log_of_boxes{nullptr};

void log_message_box(std::string_view caption, std::string_view text) {
    ServerOutput* const output = log_of_boxes.load();
    if (output == nullptr) return;
    std::array<char, kCaptionText + kErrorText + 4> line;  // memory may be what the box is about
    const int length =
        std::snprintf(line.data(), line.size(), "%.*s: %.*s\n", static_cast<int>(caption.size()),
                      caption.data(), static_cast<int>(text.size()), text.data());
    if (length > 0)
        output->log({line.data(), std::min(static_cast<std::size_t>(length), line.size() - 1)});
}

std::vector<Filter> as_filters(std::vector<Search> expressions) {
    std::vector<Filter> filters;
    for (Search& expression : expressions)
        filters.emplace_back(std::move(expression));
    return filters;
}

void start_thread(kx_thread& thread) {
    thread.start();
    if (thread.state() != kx_thread::State::running) kx_error("the system refuses another thread");
}

}  // namespace

std::uint32_t localAddress(kx_net_protocol& net) {
    const kx_host_info host = net.local_host_info();
    return host.addresses.empty() ? 0 : host.addresses.front().value();
}

Server::Server(kx_net_protocol& net, const Clock& clock, Random random, ConsoleInput& input,
               OutputWriter& console)
    : net_(net),
      output_(settings_, console),
      input_(input),
      random_(random),
      throttle_(clock),
      pool_(net, clock, limits_) {
    log_of_boxes = &output_;
    set_message_box_hook(&log_message_box);
}

Server::~Server() {
    stop();
    ServerOutput* own = &output_;
    log_of_boxes.compare_exchange_strong(own, nullptr);
    if (debug_log_) kx_set_debug_stream(&debug_console());
}

void Server::start(const std::string& settings_file) {
    settings_file_ = settings_file;
    load(settings_file);
    output_.printLine("Welcome to Vorrim server v%d.%d.", ServerSettings::kVersionMajor,
                      settings_.versionMinor);
    output_.printLine("Using IP: %s\n", ipToText(settings_.thisIP).c_str());

    const std::uint64_t allowed = raiseDescriptorLimit();
    const std::uint64_t needed = descriptorsNeeded(settings_.maxClients, settings_.threads);
    if (allowed < needed)
        output_.printLine(
            "The system allows %llu open files, but maxClients %d needs %llu: connections beyond "
            "them have to wait",
            static_cast<unsigned long long>(allowed), settings_.maxClients,
            static_cast<unsigned long long>(needed));
    prepareDescriptors(std::min(allowed, needed));

    start_workers();
    directory_.start();
    housekeeping_.emplace(clients_, *files_, pool_.clock(), &directory_, &limits_.log);
    output_.flush();  // who gets through a door may rely on what was said before
    open_doors();
    start_thread(*housekeeping_);
    serving_ = true;
}

void Server::run() {
    console_->run(settings_.console);
}

void Server::load(const std::string& settings_file) {
    LoadedSettings loaded =
        settings_.load(settings_file, output_, [this] { return localAddress(net_); });
    if (settings_.logFile) open_debug_log();
    settings_.apply_to(limits_, random_);
    make_service(std::move(loaded));
}

void Server::open_debug_log() {
    output_.printLine("Using log file.\n");
    debug_log_ = DebugLog::open();
    if (debug_log_) kx_set_debug_stream(debug_log_.get());
}

void Server::reload() noexcept {
    try {
        const bool reopened = output_.reopenLog() && (!debug_log_ || debug_log_->reopen());
        current_output().printLine(
            reopened ? "Log files opened again"
                     : "Couldn't open the log files again (the old ones stay in use)");
        read_settings_again();
    } catch (const kx_err& error) {
        current_output().printLine("Couldn't read everything again: %s", error.message().c_str());
    } catch (const std::bad_alloc&) {
        current_output().printLine("Couldn't read everything again: out of memory");
    }
}

void Server::read_settings_again() {
    std::optional<ChangeableSettings> read = settings_.readAgain(settings_file_, current_output());
    if (!read) {
        current_output().printLine("Couldn't open %s again (settings stay as they are)",
                                   settings_file_.c_str());
        return;
    }
    const std::size_t lines = read->welcome.size();
    const std::size_t count = read->filters.size();
    files_->replace_filters(as_filters(std::move(read->filters)));
    settings_.welcome.replace(std::move(read->welcome));
    current_output().printLine("Settings read again: %zu welcome lines, %zu filters", lines, count);
}

void Server::make_service(LoadedSettings loaded) {
    if (settings_.keywordSearch) {
        files_ = std::make_unique<KeywordFileIndex>();
    } else {
        files_ = std::make_unique<FileIndex>();
    }
    files_->replace_filters(as_filters(std::move(loaded.filters)));
    files_->init(settings_.tableSize);
    for (const std::string& room : loaded.rooms)
        rooms_.add(room);
    own_record_ = FrozenRecord::from(settings_);
    service_settings_ = {settings_.maxClients,   settings_.maxSearchResults,
                         settings_.minVersion,   settings_.maxVersion,
                         settings_.most_files(), settings_.record_limits()};
    service_.emplace(ClientService{service_settings_, own_record_, clients_, *files_, rooms_,
                                   settings_.welcome, directory_});
    console_.emplace(
        input_, settings_, *service_, directory_, [this] { housekeeping_->requestUpkeep(); },
        random_);
    if (loaded.administrator)
        console_->setRemoteCredentials(std::move(loaded.administrator->name),
                                       std::move(loaded.administrator->password));
}

void Server::start_workers() {
    const std::int32_t count = std::min(settings_.threads, kMostThreads);
    if (count < settings_.threads)
        output_.printLine("threads is %d, using %d", settings_.threads, count);
    // Each of them makes a share of the pool, and all shares are there before the first task.
    for (std::int32_t i = 0; i < count; ++i) {
        workers_.push_back(std::make_unique<Worker>(pool_));
        start_thread(*workers_.back());
    }
}

void Server::open_doors() {
    Door::open(std::make_unique<ControllerDoor>(pool_, settings_.administrationPort(),
                                                settings_.adminBind, *console_, throttle_),
               pool_, kProxyWait);
    Door::open(std::make_unique<ClientDoor>(pool_, settings_.clientPort(), *service_), pool_,
               kProxyWait);
    UDPDoor::open(std::make_unique<ExClientDoor>(pool_, settings_.datagramPort(), *service_), pool_,
                  kProxyWait);
}

void Server::stop() {
    if (housekeeping_) housekeeping_->stop();
    for (const auto& worker : workers_)
        worker->stop();
    if (service_) service_->ending = true;
    pool_.delete_all();
    limits_.log.report(std::nullopt);
    // After a start that failed half-way the list in memory says nothing.
    if (std::exchange(serving_, false)) directory_.save();
}

}  // namespace vorrim
