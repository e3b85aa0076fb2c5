// LinuxBundle
