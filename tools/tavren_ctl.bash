# What bash proposes behind tavren_ctl. Nothing of it asks the daemon: a key that completes a word should not wait.
# shellcheck shell=bash

_tavren_ctl_options() {
  case ${COMP_WORDS[COMP_CWORD - 1]} in
    -l | --limit) echo audit= logs= ;;
    -p | --password-fd) ;;
    *) echo --host-key --limit --password-fd --yes ;;
  esac
}

# Prints the words that may stand at the cursor.
_tavren_ctl_words() {
  case $COMP_CWORD:${COMP_WORDS[1]-} in
    1:*)
      echo --help --version archived audit clear commands config directory disable enable errors host intervals run set-command
      echo set-interval set-tunable setup sleeping state status tunables watch
      ;;
    2:config | 2:errors | 2:status) echo --json ;;
    2:run | 2:set-interval) echo audit space ;;
    3:set-interval) echo default ;;
    2:set-command) echo cat cd du head ls mkdir rm scp sh ssh ;;
    2:set-tunable)
      echo failure_retry_interval log_dir_prefix loopback_login ssh_command_timeout ssh_connect_timeout
      echo ssh_du_command_timeout ssh_shell_start_timeout subprocess_log_size
      ;;
    *:setup) _tavren_ctl_options ;;
  esac
}

_tavren_ctl() {
  local word=${COMP_WORDS[COMP_CWORD]}
  case ${COMP_WORDS[1]-}:${COMP_WORDS[COMP_CWORD - 1]} in
    archived:archived | setup:-k | setup:--host-key)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$(_tavren_ctl_words)" -- "$word") ;;
  esac
  # A limit's number follows the equals sign at once.
  [[ ${COMPREPLY[*]} != *= ]] || compopt -o nospace 2>/dev/null
}

complete -F _tavren_ctl tavren_ctl
