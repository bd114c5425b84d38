#include "KXPublisher/gobject/kx-publisher.h"

#include <KXPublisher/KXConstants.h>
#include <KXPublisher/platform/foundation/JSONSerialization.h>
#include <KXPublisher/platform/linux/LinuxHost.h>

#include <KXPublisher/KXPublisher.hpp>
#include <new>
#include <utility>

// A face, and nothing behind it: each function hands its call on to C++ and lets no exception through.

/**
 * KxPublisher:
 *
 * Reports the context in which the host application runs to a collection service.
 *
 * The host makes one call, on its main thread while it starts; from then on everything happens by itself. The
 * one publisher is had by [func@KxPublisher.Publisher.get_default]; one that is made in another way does
 * nothing.
 *
 * A report is made 5 s after that call, every 600 s in the foreground, on each entry into the background and
 * 5 s after each return to the foreground. One without a usable advertising identifier is dropped, and one
 * that cannot be delivered is lost. No failure reaches the host. Everything may be called from any thread,
 * and all but [method@KxPublisher.Publisher.dup_message] returns at once.
 *
 * The host runs GLib's default main context; the thread that runs it is the main thread. The application is
 * known by the identifier of its `GApplication`, which it makes before that call, or by
 * [property@KxPublisher.Options:application-identifier].
 */
struct _KxPublisher {
  GObject parent_instance;
  kx::KXPublisher *publisher;  // never destroyed; absent in an object that a host has made itself
};

G_DEFINE_FINAL_TYPE(KxPublisher, kx_publisher, G_TYPE_OBJECT)

namespace {

enum Property : guint { message = 1, propertyCount };

GParamSpec *properties[propertyCount];

void getProperty(GObject *object, guint property, GValue *value, GParamSpec *specification) {
  switch (property) {
    case message:
      g_value_take_string(value, kx_publisher_dup_message(KX_PUBLISHER(object)));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, property, specification);
  }
}

std::optional<std::string> optionalText(const char *text) {
  return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

KxPublisher *makeDefault(const char *apiToken, const char *hostname) {
  const auto publisher = kx::KXPublisher::sharedInstanceWithApiToken(apiToken, hostname);
  if (publisher == nullptr) throw std::bad_alloc();
  KxPublisher *const self = KX_PUBLISHER(g_object_new(KX_TYPE_PUBLISHER, nullptr));
  self->publisher = publisher.get();
  return self;
}

}  // namespace

static void kx_publisher_class_init(KxPublisherClass *klass) {
  GObjectClass *const objects = G_OBJECT_CLASS(klass);
  objects->get_property = getProperty;
  /**
   * KxPublisher:message: (getter dup_message)
   *
   * A message of what is known now, as JSON. Reading it makes a new one and costs as much as a report; no
   * change is notified.
   */
  properties[message] =
      g_param_spec_string("message", nullptr, nullptr, nullptr,
                          static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS));
  g_object_class_install_properties(objects, propertyCount, properties);
}

static void kx_publisher_init(KxPublisher * /*self*/) {}

/**
 * kx_publisher_set_options:
 * @options: the options, which are copied
 *
 * Gives the library its options. To be called before anything else of the library.
 *
 * Returns: whether they came in time; when not, they have no effect
 */
gboolean kx_publisher_set_options(KxOptions *options) {
  g_return_val_if_fail(KX_IS_OPTIONS(options), FALSE);
  try {
    kx::LinuxHostOptions values;
    values.advertisingIdentifier = optionalText(kx_options_get_advertising_identifier(options));
    values.advertisingTrackingEnabled = kx_options_get_advertising_tracking_enabled(options) != FALSE;
    values.certificateAuthorityFile = optionalText(kx_options_get_certificate_authority_file(options));
    values.backgroundRefreshStatus =
        static_cast<kx::BackgroundRefreshStatus>(kx_options_get_background_refresh_status(options));
    values.applicationIdentifier = optionalText(kx_options_get_application_identifier(options));
    return kx::LinuxHost::setOptions(std::move(values)) ? TRUE : FALSE;
  } catch (...) {
    return FALSE;
  }
}

/**
 * kx_publisher_set_service_paths:
 * @login: (nullable): the login endpoint
 * @message: (nullable): the message endpoint
 *
 * Sets the service's paths, for a service that has others than %KX_PUBLISHER_API_PATH_GET_TOKEN and
 * %KX_PUBLISHER_FEED_PATH_LOG_DATA. To be called before [func@KxPublisher.Publisher.get_default]; with %NULL
 * nothing will ever be sent there.
 */
void kx_publisher_set_service_paths(const char *login, const char *message) {
  // The library keeps the pointers for good.
  kxPublisherApiPathGetToken = g_intern_string(login);
  kxPublisherFeedPathLogData = g_intern_string(message);
}

/**
 * kx_publisher_get_default:
 * @api_token: (nullable): what the service knows the host by
 * @hostname: (nullable): the service; may carry a port, "localhost:8443"
 *
 * The one publisher, made and started by the first call; later calls ignore their arguments. Neither argument
 * is validated: with an absent one nothing will ever be sent.
 *
 * Returns: (transfer none) (nullable): the publisher, which stays for the life of the process, or %NULL when
 * there is no memory for one
 */
KxPublisher *kx_publisher_get_default(const char *api_token, const char *hostname) {
  try {
    static KxPublisher *const instance = makeDefault(api_token, hostname);
    return instance;
  } catch (...) {
    return nullptr;
  }
}

/**
 * kx_publisher_enable_debugging:
 * @self: the publisher
 *
 * Lets the library's log print every level, in the whole process.
 */
void kx_publisher_enable_debugging(KxPublisher *self) {
  g_return_if_fail(KX_IS_PUBLISHER(self) && self->publisher != nullptr);
  self->publisher->enableDebugging();
}

/**
 * kx_publisher_disable_debugging:
 * @self: the publisher
 *
 * Back to errors only; they stay on.
 */
void kx_publisher_disable_debugging(KxPublisher *self) {
  g_return_if_fail(KX_IS_PUBLISHER(self) && self->publisher != nullptr);
  self->publisher->disableDebugging();
}

/**
 * kx_publisher_dup_message: (get-property message)
 * @self: the publisher
 *
 * A new message of what is known now, as it would be sent: a flat JSON object under the `KX_DATA_KEY_...`
 * keys. Costs as much as a report.
 *
 * Returns: (transfer full) (nullable): JSON, or %NULL when none can be made
 */
char *kx_publisher_dup_message(KxPublisher *self) {
  g_return_val_if_fail(KX_IS_PUBLISHER(self) && self->publisher != nullptr, nullptr);
  try {
    const auto text = kx::JSONSerialization::dataWithJSONObject(self->publisher->data());
    return text ? g_strndup(text->data(), text->size()) : nullptr;
  } catch (...) {
    return nullptr;
  }
}

/**
 * kx_publisher_dup_diagnosis:
 *
 * Why messages arrive, or do not, and what to do about it, in plain words. May be asked at any time, before
 * [func@KxPublisher.Publisher.get_default], too, and changes nothing. It names no token, identifier or
 * position.
 *
 * Returns: (transfer full): the text
 */
char *kx_publisher_dup_diagnosis() {
  try {
    const std::string text =
        kx::KXPublisher::diagnosis().text();  // an error in it is of another library's making
    return g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  } catch (...) {
    return g_strdup("");
  }
}

/**
 * kx_publisher_did_enter_background:
 *
 * The application has entered the background: its windows are hidden, or it is being suspended. Ignored while
 * it is there already.
 */
void kx_publisher_did_enter_background() {
  kx::LinuxHost::didEnterBackground();
}

/**
 * kx_publisher_will_enter_foreground:
 *
 * The application is about to return to the foreground. Ignored while it is there already; an application
 * starts there.
 */
void kx_publisher_will_enter_foreground() {
  kx::LinuxHost::willEnterForeground();
}
