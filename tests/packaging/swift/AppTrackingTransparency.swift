// As much of AppTrackingTransparency as the example app uses, as Swift imports it.
public enum ATTrackingManager {
  public enum AuthorizationStatus: Sendable { case notDetermined, restricted, denied, authorized }

  public static func requestTrackingAuthorization() async -> AuthorizationStatus { .denied }
}
