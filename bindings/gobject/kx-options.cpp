#include "KXPublisher/gobject/kx-options.h"

/**
 * KxOptions:
 *
 * What the library cannot learn from a Linux system, and the host tells it by
 * [func@KxPublisher.Publisher.set_options]. A plain bag of values: it is read at that call, and what is
 * changed in it later is not seen. To be used by one thread at a time.
 *
 * A geocoder of the host's own can be given in C++ only.
 */
struct _KxOptions {
  GObject parent_instance;
  char *advertising_identifier;
  gboolean advertising_tracking_enabled;
  char *certificate_authority_file;
  KxBackgroundRefreshStatus background_refresh_status;
  char *application_identifier;
};

G_DEFINE_ENUM_TYPE(KxBackgroundRefreshStatus, kx_background_refresh_status,
                   G_DEFINE_ENUM_VALUE(KX_BACKGROUND_REFRESH_STATUS_RESTRICTED, "restricted"),
                   G_DEFINE_ENUM_VALUE(KX_BACKGROUND_REFRESH_STATUS_DENIED, "denied"),
                   G_DEFINE_ENUM_VALUE(KX_BACKGROUND_REFRESH_STATUS_AVAILABLE, "available"))

G_DEFINE_FINAL_TYPE(KxOptions, kx_options, G_TYPE_OBJECT)

namespace {

enum Property : guint {
  advertisingIdentifier = 1,
  advertisingTrackingEnabled,
  certificateAuthorityFile,
  backgroundRefreshStatus,
  applicationIdentifier,
  propertyCount
};

GParamSpec *properties[propertyCount];

void setText(KxOptions *self, char *KxOptions::*field, const char *text, Property property) {
  if (g_strcmp0(self->*field, text) == 0) return;
  char *const copy = g_strdup(text);
  g_free(self->*field);
  self->*field = copy;
  g_object_notify_by_pspec(G_OBJECT(self), properties[property]);
}

template <typename Field>
void setPlain(KxOptions *self, Field KxOptions::*field, Field value, Property property) {
  if (self->*field == value) return;
  self->*field = value;
  g_object_notify_by_pspec(G_OBJECT(self), properties[property]);
}

void getProperty(GObject *object, guint property, GValue *value, GParamSpec *specification) {
  KxOptions *const self = KX_OPTIONS(object);
  switch (property) {
    case advertisingIdentifier:
      g_value_set_string(value, self->advertising_identifier);
      break;
    case advertisingTrackingEnabled:
      g_value_set_boolean(value, self->advertising_tracking_enabled);
      break;
    case certificateAuthorityFile:
      g_value_set_string(value, self->certificate_authority_file);
      break;
    case backgroundRefreshStatus:
      g_value_set_enum(value, self->background_refresh_status);
      break;
    case applicationIdentifier:
      g_value_set_string(value, self->application_identifier);
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, property, specification);
  }
}

void setProperty(GObject *object, guint property, const GValue *value, GParamSpec *specification) {
  KxOptions *const self = KX_OPTIONS(object);
  switch (property) {
    case advertisingIdentifier:
      kx_options_set_advertising_identifier(self, g_value_get_string(value));
      break;
    case advertisingTrackingEnabled:
      kx_options_set_advertising_tracking_enabled(self, g_value_get_boolean(value));
      break;
    case certificateAuthorityFile:
      kx_options_set_certificate_authority_file(self, g_value_get_string(value));
      break;
    case backgroundRefreshStatus:
      kx_options_set_background_refresh_status(
          self, static_cast<KxBackgroundRefreshStatus>(g_value_get_enum(value)));
      break;
    case applicationIdentifier:
      kx_options_set_application_identifier(self, g_value_get_string(value));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, property, specification);
  }
}

void finalize(GObject *object) {
  KxOptions *const self = KX_OPTIONS(object);
  g_free(self->advertising_identifier);
  g_free(self->certificate_authority_file);
  g_free(self->application_identifier);
  G_OBJECT_CLASS(kx_options_parent_class)->finalize(object);
}

}  // namespace

static void kx_options_class_init(KxOptionsClass *klass) {
  GObjectClass *const objects = G_OBJECT_CLASS(klass);
  objects->get_property = getProperty;
  objects->set_property = setProperty;
  objects->finalize = finalize;

  constexpr auto flags =
      static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_EXPLICIT_NOTIFY | G_PARAM_STATIC_STRINGS);
  /**
   * KxOptions:advertising-identifier:
   *
   * The identifier for advertising, a UUID text. Without one no message is ever sent.
   */
  properties[advertisingIdentifier] =
      g_param_spec_string("advertising-identifier", nullptr, nullptr, nullptr, flags);
  /**
   * KxOptions:advertising-tracking-enabled:
   *
   * %FALSE when the user has asked not to be tracked. The identifier is reported as it is all the same; a
   * host that respects the choice gives the all-zero one then, or none.
   */
  properties[advertisingTrackingEnabled] =
      g_param_spec_boolean("advertising-tracking-enabled", nullptr, nullptr, TRUE, flags);
  /**
   * KxOptions:certificate-authority-file: (type filename)
   *
   * A PEM file of certificate authorities to trust beside the system's.
   */
  properties[certificateAuthorityFile] =
      g_param_spec_string("certificate-authority-file", nullptr, nullptr, nullptr, flags);
  /**
   * KxOptions:background-refresh-status:
   *
   * Whether the application may work in the background.
   */
  properties[backgroundRefreshStatus] =
      g_param_spec_enum("background-refresh-status", nullptr, nullptr, KX_TYPE_BACKGROUND_REFRESH_STATUS,
                        KX_BACKGROUND_REFRESH_STATUS_AVAILABLE, flags);
  /**
   * KxOptions:application-identifier:
   *
   * The application's identifier, "org.example.Host", for a host that has no `GApplication` with one. A
   * `GApplication`'s goes before it, and it goes before the one that a Flatpak sandbox knows.
   */
  properties[applicationIdentifier] =
      g_param_spec_string("application-identifier", nullptr, nullptr, nullptr, flags);
  g_object_class_install_properties(objects, propertyCount, properties);
}

static void kx_options_init(KxOptions *self) {
  self->advertising_tracking_enabled = TRUE;
  self->background_refresh_status = KX_BACKGROUND_REFRESH_STATUS_AVAILABLE;
}

/**
 * kx_options_new:
 *
 * The options as they are when a host sets none: no advertising identifier, and so no message is ever sent.
 *
 * Returns: (transfer full): new options
 */
KxOptions *kx_options_new() {
  return KX_OPTIONS(g_object_new(KX_TYPE_OPTIONS, nullptr));
}

/**
 * kx_options_get_advertising_identifier: (get-property advertising-identifier)
 * @self: the options
 *
 * The identifier for advertising.
 *
 * Returns: (nullable): a UUID text, or %NULL for none
 */
const char *kx_options_get_advertising_identifier(KxOptions *self) {
  g_return_val_if_fail(KX_IS_OPTIONS(self), nullptr);
  return self->advertising_identifier;
}

/**
 * kx_options_set_advertising_identifier: (set-property advertising-identifier)
 * @self: the options
 * @identifier: (nullable): a UUID text, or %NULL for none
 *
 * Sets the identifier for advertising.
 */
void kx_options_set_advertising_identifier(KxOptions *self, const char *identifier) {
  g_return_if_fail(KX_IS_OPTIONS(self));
  setText(self, &KxOptions::advertising_identifier, identifier, advertisingIdentifier);
}

/**
 * kx_options_get_advertising_tracking_enabled: (get-property advertising-tracking-enabled)
 * @self: the options
 *
 * Whether the user lets advertisers track him.
 *
 * Returns: %FALSE when he has asked not to be tracked
 */
gboolean kx_options_get_advertising_tracking_enabled(KxOptions *self) {
  g_return_val_if_fail(KX_IS_OPTIONS(self), TRUE);
  return self->advertising_tracking_enabled;
}

/**
 * kx_options_set_advertising_tracking_enabled: (set-property advertising-tracking-enabled)
 * @self: the options
 * @enabled: %FALSE when the user has asked not to be tracked
 *
 * Sets whether the user lets advertisers track him.
 */
void kx_options_set_advertising_tracking_enabled(KxOptions *self, gboolean enabled) {
  g_return_if_fail(KX_IS_OPTIONS(self));
  setPlain(self, &KxOptions::advertising_tracking_enabled, enabled == FALSE ? FALSE : TRUE,
           advertisingTrackingEnabled);
}

/**
 * kx_options_get_certificate_authority_file: (get-property certificate-authority-file)
 * @self: the options
 *
 * The certificate authorities to trust beside the system's.
 *
 * Returns: (nullable) (type filename): a PEM file, or %NULL for none
 */
const char *kx_options_get_certificate_authority_file(KxOptions *self) {
  g_return_val_if_fail(KX_IS_OPTIONS(self), nullptr);
  return self->certificate_authority_file;
}

/**
 * kx_options_set_certificate_authority_file: (set-property certificate-authority-file)
 * @self: the options
 * @path: (nullable) (type filename): a PEM file, or %NULL for none
 *
 * Sets the certificate authorities to trust beside the system's.
 */
void kx_options_set_certificate_authority_file(KxOptions *self, const char *path) {
  g_return_if_fail(KX_IS_OPTIONS(self));
  setText(self, &KxOptions::certificate_authority_file, path, certificateAuthorityFile);
}

/**
 * kx_options_get_background_refresh_status: (get-property background-refresh-status)
 * @self: the options
 *
 * Whether the application may work in the background.
 *
 * Returns: the status
 */
KxBackgroundRefreshStatus kx_options_get_background_refresh_status(KxOptions *self) {
  g_return_val_if_fail(KX_IS_OPTIONS(self), KX_BACKGROUND_REFRESH_STATUS_AVAILABLE);
  return self->background_refresh_status;
}

/**
 * kx_options_set_background_refresh_status: (set-property background-refresh-status)
 * @self: the options
 * @status: the status
 *
 * Sets whether the application may work in the background.
 */
void kx_options_set_background_refresh_status(KxOptions *self, KxBackgroundRefreshStatus status) {
  g_return_if_fail(KX_IS_OPTIONS(self));
  setPlain(self, &KxOptions::background_refresh_status, status, backgroundRefreshStatus);
}

/**
 * kx_options_get_application_identifier: (get-property application-identifier)
 * @self: the options
 *
 * The application's identifier, for a host that has no `GApplication` with one.
 *
 * Returns: (nullable): "org.example.Host", or %NULL for none
 */
const char *kx_options_get_application_identifier(KxOptions *self) {
  g_return_val_if_fail(KX_IS_OPTIONS(self), nullptr);
  return self->application_identifier;
}

/**
 * kx_options_set_application_identifier: (set-property application-identifier)
 * @self: the options
 * @identifier: (nullable): "org.example.Host", or %NULL for none
 *
 * Sets the application's identifier, for a host that has no `GApplication` with one.
 */
void kx_options_set_application_identifier(KxOptions *self, const char *identifier) {
  g_return_if_fail(KX_IS_OPTIONS(self));
  setText(self, &KxOptions::application_identifier, identifier, applicationIdentifier);
}
