// LinuxSounds
