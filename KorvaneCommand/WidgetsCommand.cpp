#include "KorvaneCommand/WidgetsCommand.hpp"

#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/LocalSnapshot.hpp"
#include "KorvaneCommand/UsageError.hpp"
#include "KorvaneCommand/Workshop.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/widget/WidgetStore.hpp"

#include <cstdio>
#include <memory>

namespace Korvane {

namespace {

struct PublishRequest {
    LocalSnapshotSources sources;
    bool fromIndex = false;
    bool hide = false;
    bool show = false;
    bool clear = false;
    bool json = false;
};

void report(const WidgetSnapshot& snapshot, bool json) {
    if (json)
        std::puts(KRJSON::write(snapshot).c_str());
    else if (snapshot.contentHidden)
        std::puts("Published: content hidden.");
    else
        std::printf("Published: %zu pinned, %s.\n", snapshot.pins.size(),
                    snapshot.onThisDay ? "a photo for today" : "no photo");
}

void choose(const PublishRequest& request) {
    if (request.hide)
        WidgetStore::setHideContent(true);
    if (request.show)
        WidgetStore::setHideContent(false);
}

WidgetSnapshot publishLocal(const PublishRequest& request) {
    // Composed before anything changes, so a source that cannot be read leaves all as it was.
    const auto composed = composeLocalSnapshot(request.sources, std::chrono::system_clock::now());
    choose(request);
    const auto wanted = request.hide ? LocalSnapshot{WidgetSnapshot::hidden, std::nullopt} : composed;
    return WidgetStore::save(wanted.snapshot, wanted.thumbnail);
}

WidgetSnapshot publishIndex(const PublishRequest& request) {
    Workshop workshop;
    choose(request);
    return workshop.client.run(workshop.publishWidgets()).snapshot;
}

/// Publishing nothing is asked for by its name: it takes what the widgets show away.
bool saysWhat(const PublishRequest& request) {
    return request.fromIndex || request.clear || request.hide || request.sources.photo ||
           !request.sources.pins.empty();
}

int publish(const PublishRequest& request) {
    if (request.sources.pins.size() > WidgetStore::maxPins)
        throw UsageError("at most " + std::to_string(WidgetStore::maxPins) + " items can be pinned");
    if (!saysWhat(request))
        throw UsageError(
            "say what to publish, with --from-index, --pin or --photo, or else --hide or --clear");
    if (request.clear) {
        WidgetStore::clear();
        std::puts(request.json ? "null" : "Cleared: the widgets ask to sign in.");
        return ExitCode::done;
    }
    const auto published = request.fromIndex ? publishIndex(request) : publishLocal(request);
    if (published.contentHidden && !request.hide)
        std::fputs("korvane: widget content is hidden; --show shows it again.\n", stderr);
    report(published, request.json);
    return ExitCode::done;
}

} // namespace

void addWidgetsCommand(CLI::App& app, int& status) {
    auto* widgets = app.add_subcommand("widgets", "Publish to the widgets");
    widgets->require_subcommand(1);
    auto* command = widgets->add_subcommand("publish", "Publish files of this computer to the widgets");
    command->footer("Until something else is published: while korvane run is up, it publishes the account's "
                    "pins and photo of "
                    "the day after each change.");
    const auto request = std::make_shared<PublishRequest>();
    auto* pin =
        command->add_option("--pin", request->sources.pins, "Files and folders to pin, in order; at most 8")
            ->type_name("FILE");
    auto* photo = command->add_option("--photo", request->sources.photo, "Picture for \"On this day\"")
                      ->type_name("FILE");
    command
        ->add_option("--years", request->sources.yearsAgo,
                     "Years since the picture (default: by its file's date)")
        ->check(CLI::Range(1, 200))
        ->needs(photo);
    auto* index = command
                      ->add_flag("--from-index", request->fromIndex,
                                 "Publish what is pinned, and a photo of this day, of the account")
                      ->excludes(pin)
                      ->excludes(photo);
    auto* hide = command->add_flag("--hide", request->hide, "Hide names and photos from now on");
    auto* show =
        command->add_flag("--show", request->show, "Show them again, with what is published")->excludes(hide);
    command->add_flag("--clear", request->clear, "Publish nothing, as when signed out")
        ->excludes(hide)
        ->excludes(show)
        ->excludes(pin)
        ->excludes(photo)
        ->excludes(index);
    command->add_flag("--json", request->json, "Print the published snapshot as JSON");
    command->callback([request, &status] { status = publish(*request); });
}

} // namespace Korvane
