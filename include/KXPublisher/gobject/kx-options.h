#pragma once

#include <glib-object.h>

/* What a host may link against. */
#define KX_PUBLIC extern __attribute__((visibility("default")))

G_BEGIN_DECLS

#define KX_TYPE_BACKGROUND_REFRESH_STATUS (kx_background_refresh_status_get_type())

/**
 * KxBackgroundRefreshStatus:
 * @KX_BACKGROUND_REFRESH_STATUS_RESTRICTED: it may not, and the user cannot change that
 * @KX_BACKGROUND_REFRESH_STATUS_DENIED: it may not, because the user does not want it
 * @KX_BACKGROUND_REFRESH_STATUS_AVAILABLE: it may
 *
 * Whether the application may work in the background.
 */
typedef enum {
  KX_BACKGROUND_REFRESH_STATUS_RESTRICTED,
  KX_BACKGROUND_REFRESH_STATUS_DENIED,
  KX_BACKGROUND_REFRESH_STATUS_AVAILABLE
} KxBackgroundRefreshStatus;

KX_PUBLIC GType kx_background_refresh_status_get_type(void) G_GNUC_CONST;

#define KX_TYPE_OPTIONS (kx_options_get_type())

KX_PUBLIC G_DECLARE_FINAL_TYPE(KxOptions, kx_options, KX, OPTIONS, GObject)

KX_PUBLIC KxOptions *kx_options_new(void) G_GNUC_WARN_UNUSED_RESULT;

KX_PUBLIC const char *kx_options_get_advertising_identifier(KxOptions *self);
KX_PUBLIC void kx_options_set_advertising_identifier(KxOptions *self, const char *identifier);

KX_PUBLIC gboolean kx_options_get_advertising_tracking_enabled(KxOptions *self);
KX_PUBLIC void kx_options_set_advertising_tracking_enabled(KxOptions *self, gboolean enabled);

KX_PUBLIC const char *kx_options_get_certificate_authority_file(KxOptions *self);
KX_PUBLIC void kx_options_set_certificate_authority_file(KxOptions *self, const char *path);

KX_PUBLIC KxBackgroundRefreshStatus kx_options_get_background_refresh_status(KxOptions *self);
KX_PUBLIC void kx_options_set_background_refresh_status(KxOptions *self, KxBackgroundRefreshStatus status);

KX_PUBLIC const char *kx_options_get_application_identifier(KxOptions *self);
KX_PUBLIC void kx_options_set_application_identifier(KxOptions *self, const char *identifier);

G_END_DECLS
