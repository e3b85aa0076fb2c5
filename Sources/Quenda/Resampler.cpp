// Resampler
