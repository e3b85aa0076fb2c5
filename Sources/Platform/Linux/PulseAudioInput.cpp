// PulseAudioInput
