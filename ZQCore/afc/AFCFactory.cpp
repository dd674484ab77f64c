#include "ZQCore/afc/AFCFactory.h"

#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/foundation/NotificationCenter.h"

#include <glib.h>

namespace zq {

namespace {

constexpr std::int32_t kDeviceConnected = 1;
constexpr std::int32_t kDeviceDisconnected = 2;

} // namespace

std::string AFCDeviceOpenFailure::description() const
{
    return "AFC device " + serialNumber.value_or("(no serial number)") + " could not be opened: " + what;
}

const std::shared_ptr<AFCFactory>& AFCFactory::factory()
{
    static const std::shared_ptr<AFCFactory> shared = [] {
        std::shared_ptr<AFCFactory> made(new AFCFactory());
        made->platform_ = MobileDevicePlatform::shared();
        // The factory lives as long as the process, so the subscription may hold it plainly.
        AFCFactory* self = made.get();
        const int error = made->platform_->notificationSubscribe([self](const AMDeviceNotification& notification) {
            // Called from the main loop: nothing may unwind into it.
            try {
                self->notify(notification);
            } catch (const std::exception& failure) {
                AFCDeviceOpenFailure report;
                report.serialNumber = notification.device ? notification.device->copyValue(std::nullopt, "SerialNumber")
                                                          : std::nullopt;
                if (const auto* known = dynamic_cast<const Exception*>(&failure))
                    report.kind = known->kind();
                report.what = failure.what();
                log(report.description());
                NotificationCenter::defaultCenter().postNotification("AFC_DeviceCouldNotBeOpened", report);
            }
        });
        // Logged with the placeholder unfilled and the number left out, as it always was.
        if (error != 0)
            log("AMDeviceNotificationSubscribe failed with error %d");
        return made;
    }();
    return shared;
}

AFCFactory::~AFCFactory() = default;

void AFCFactory::notify(const AMDeviceNotification& notification)
{
    if (notification.message == kDeviceConnected) {
        ++reported_;
        if (auto delegate = delegate_.lock())
            delegate->AFCDeviceWasConnected(AFCDeviceRef::initWithAFCDeviceStruct(notification.device));
    } else if (notification.message == kDeviceDisconnected) {
        if (reported_ > 0)
            --reported_;
        // The broadcast always comes first: sessions learn of the departure before the
        // delegate drops the device from its list.
        const std::uint32_t deviceID = notification.device ? notification.device->deviceID() : 0;
        NotificationCenter::defaultCenter().postNotification("AFC_DeviceWasDisconnected", deviceID);
        if (auto delegate = delegate_.lock())
            delegate->AFCDeviceWasDisconnected(AFCDeviceRef::initWithAFCDeviceStruct(notification.device));
    }
}

bool AFCFactory::waitForAttachedDevices(std::chrono::milliseconds timeout)
{
    const std::size_t wanted = platform_ ? platform_->attachedDeviceCount() : 0;
    GMainContext* context = g_main_context_ref_thread_default();
    bool expired = false;
    GSource* timer = g_timeout_source_new(static_cast<guint>(timeout.count()));
    g_source_set_callback(
        timer, [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &expired, nullptr);
    g_source_attach(timer, context);
    while (reported_ < wanted && !expired)
        g_main_context_iteration(context, TRUE);
    g_source_destroy(timer);
    g_source_unref(timer);
    g_main_context_unref(context);
    return reported_ >= wanted;
}

} // namespace zq
