// LinuxPlatform
