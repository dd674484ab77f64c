// Change notices of observable keys and the in-process notification centre.

#include "ZQCore/foundation/NotificationCenter.h"
#include "ZQCore/foundation/Observable.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Phase = zq::Observable::Phase;

struct Subject : zq::Observable {};

std::string phaseName(Phase phase) { return phase == Phase::WillChange ? "will" : "did"; }

TEST(FoundationObservable, ObserversOfAKeySeeWillThenDidInRegistrationOrder)
{
    Subject subject;
    std::vector<std::string> seen;
    auto first = subject.addObserver("tracks", [&](const std::string& key, Phase phase) {
        seen.push_back("1 " + phaseName(phase) + " " + key);
    });
    subject.addObserver("tracks", [&](const std::string& key, Phase phase) {
        seen.push_back("2 " + phaseName(phase) + " " + key);
    });
    subject.addObserver("playlists", [&](const std::string&, Phase) { seen.push_back("wrong key"); });

    {
        zq::ChangeScope change(subject, "tracks");
        seen.push_back("change");
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"1 will tracks", "2 will tracks", "change", "1 did tracks",
                                              "2 did tracks"}));

    seen.clear();
    subject.removeObserver(first);
    subject.removeObserver(first); // twice is harmless
    subject.didChangeValueForKey("tracks");
    EXPECT_EQ(seen, std::vector<std::string>{"2 did tracks"});

    // A change that throws is still closed with its did-change notice.
    seen.clear();
    EXPECT_THROW(
        {
            zq::ChangeScope change(subject, "tracks");
            throw std::runtime_error("mutation failed");
        },
        std::runtime_error);
    EXPECT_EQ(seen, (std::vector<std::string>{"2 will tracks", "2 did tracks"}));
}


TEST(FoundationObservable, CallbacksMayAddAndRemoveObserversWhileBeingCalled)
{
    Subject subject;
    std::vector<std::string> seen;
    zq::Observable::Token self = 0;
    self = subject.addObserver("connectediPods", [&](const std::string&, Phase phase) {
        seen.push_back("once " + phaseName(phase));
        subject.removeObserver(self);
        for (int i = 0; i < 20; ++i) // enough to move the observer list in memory
            subject.addObserver("connectediPods", [&, i](const std::string&, Phase later) {
                if (i == 0)
                    seen.push_back("added " + phaseName(later));
            });
    });
    subject.willChangeValueForKey("connectediPods");
    subject.didChangeValueForKey("connectediPods");
    EXPECT_EQ(seen, (std::vector<std::string>{"once will", "added did"}));
}

TEST(FoundationNotificationCenter, PostReachesObserversOfTheNameWithTheObject)
{
    auto& center = zq::NotificationCenter::defaultCenter();

    std::vector<std::string> seen;
    auto a = center.addObserver("FoundationTestNotice", [&](const std::string& name, const std::any& object) {
        seen.push_back("a " + name + " " + std::any_cast<std::string>(object));
    });
    auto b = center.addObserver("FoundationTestNotice", [&](const std::string&, const std::any& object) {
        seen.push_back(object.has_value() ? "b with object" : "b without object");
    });
    auto other = center.addObserver("FoundationOtherNotice", [&](const std::string&, const std::any&) {
        seen.push_back("other");
    });

    center.postNotification("FoundationTestNotice", std::string("device-1"));
    center.removeObserver(a);
    center.postNotification("FoundationTestNotice");
    center.removeObserver(b);
    center.removeObserver(other);
    center.postNotification("FoundationTestNotice", std::string("nobody"));
    EXPECT_EQ(seen, (std::vector<std::string>{"a FoundationTestNotice device-1", "b with object", "b without object"}));
}

} // namespace
