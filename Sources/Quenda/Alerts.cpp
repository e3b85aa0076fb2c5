// Alerts
