# SPDX-License-Identifier: Apache-2.0
# A fresh minimal system of this machine's release with a real systemd, booted in a container with a network of its own.
# Sourced; the caller sets $work, an empty folder for the system and its logs, and calls container_end when it ends.

container_pid= container_leader=
root=$work/root

# container_make PACKAGE...: with these package files, and what they need from the registries that this machine is set to
container_make() {
  local release source sources=()
  release=$(. /etc/os-release && echo "$VERSION_CODENAME")
  for source in /etc/apt/sources.list /etc/apt/sources.list.d/*.{list,sources}; do
    [[ ! -s $source ]] || sources+=("$source")
  done
  mmdebstrap --quiet --mode=root --variant=apt --include=systemd-sysv --skip=check/empty,cleanup/apt/lists \
    "$release" "$root" "${sources[@]}"
  mkdir "$root/packages"
  cp "$@" "$root/packages"
  chroot "$root" env DEBIAN_FRONTEND=noninteractive sh -c \
    'apt-get -q -y --no-install-recommends install /packages/*.deb' >"$work/install.log" 2>&1 </dev/null ||
    { tail -n 40 "$work/install.log" >&2; echo "FAILED: apt cannot install the packages" >&2; return 1; }
}

# container_boot: false where this machine boots none, or none that comes up in 90 s; boot.log tells more.
container_boot() {
  local options=(--quiet --directory="$root" --boot --private-network --console=read-only) limit=$((SECONDS + 90))
  # Where this machine's own systemd runs, it keeps the container's books.
  [[ -d /run/systemd/system ]] || options+=(--register=no --keep-unit)
  systemd-nspawn "${options[@]}" >"$work/boot.log" 2>&1 </dev/null &
  container_pid=$!
  until [[ -n $container_leader ]] && inside systemctl is-active -q multi-user.target 2>/dev/null; do
    kill -0 "$container_pid" 2>/dev/null || return 1
    ((SECONDS < limit)) || { echo "it does not come up" >>"$work/boot.log"; return 1; }
    container_leader=$(cut -d ' ' -f 1 "/proc/$container_pid/task/$container_pid/children" 2>/dev/null || true)
    sleep 0.2
  done
}

# inside COMMAND...: in the container, as its superuser
inside() {
  nsenter -t "$container_leader" -a -- env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 "$@" </dev/null
}

container_end() {
  if [[ -n $container_pid ]]; then
    kill -KILL ${container_leader:+"$container_leader"} 2>/dev/null || kill "$container_pid" 2>/dev/null || true
    wait "$container_pid" 2>/dev/null || true
    # Without a service manager outside, its control groups are nobody's.
    for tree in /sys/fs/cgroup /sys/fs/cgroup/*; do
      find "$tree/payload" "$tree/supervisor" -depth -type d -exec rmdir {} + 2>/dev/null || true
    done
  fi
  rm -rf "$root"
}
