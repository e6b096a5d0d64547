# bash completion for qzvault: commands, the commands of attr, version and locks,
# global options, and file names for everything else (vault paths are paths
# relative to the current folder, so the shell's own file names fit them).
#
# Installed as share/bash-completion/completions/qzvault, where bash loads it
# on first use; or source it from ~/.bashrc. The command list is checked
# against `qzvault --help` by the tests, so a new command must be added here.

_qzvault_commands="init info ls tree mkdir rmdir rename fsrename mv add rm attr version log show diff lock unlock locks status analyze deps used-by resources types clean lineage graph demo check config help"
_qzvault_global_options="-C --vault --plugins --log-level --set --help --help-all --version"

_qzvault() {
  local current=${COMP_WORDS[COMP_CWORD]}
  local previous=""
  ((COMP_CWORD > 0)) && previous=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()

  # Options that take a directory.
  case "$previous" in
    -C | --vault | --plugins)
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      return 0
      ;;
    --log-level)
      mapfile -t COMPREPLY < <(compgen -W "1 2 3 4 5 6" -- "$current")
      return 0
      ;;
  esac

  # The command: the first word that is not an option or an option's value.
  local index=1 command="" sub=""
  while ((index < COMP_CWORD)); do
    local word=${COMP_WORDS[index]}
    case "$word" in
      -C | --vault | --plugins | --log-level | --set) index=$((index + 1)) ;;
      -*) ;;
      *)
        if [[ -z "$command" ]]; then
          command=$word
        elif [[ -z "$sub" ]]; then
          sub=$word
        fi
        ;;
    esac
    index=$((index + 1))
  done

  if [[ "$current" == -* ]]; then
    local options=$_qzvault_global_options
    # A command's own options, read from its help.
    if [[ -n "$command" ]]; then
      local words=$command
      [[ "$command" == attr || "$command" == version ]] && words+=" $sub"
      # Word splitting of $words is intended: "attr set" is two words.
      # shellcheck disable=SC2086
      options+=" $("${COMP_WORDS[0]}" help $words 2>/dev/null |
                   sed -n 's/^  \(-[^ ]*\).*/\1/p' | tr ',' ' ')"
    fi
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    return 0
  fi
  if [[ -z "$command" || "$command" == help && -z "$sub" ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$_qzvault_commands" -- "$current")
    return 0
  fi
  if [[ -z "$sub" ]]; then
    case "$command" in
      attr) mapfile -t COMPREPLY < <(compgen -W "list get set clear" -- "$current"); return 0 ;;
      version) mapfile -t COMPREPLY < <(compgen -W "create list rollback" -- "$current"); return 0 ;;
      locks) mapfile -t COMPREPLY < <(compgen -W "list clear" -- "$current"); return 0 ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -f -- "$current")
  return 0
}

complete -F _qzvault qzvault
