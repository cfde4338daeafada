# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Completion of quorvexvpnctl for bash; needs nothing but bash itself.

_quorvexvpnctl() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command='' word
  COMPREPLY=()

  # bash cuts "--protocol=wg" into three words.
  [ "$current" != = ] || current=''
  [ "$previous" != = ] || previous=${COMP_WORDS[COMP_CWORD - 2]}
  case $previous in
    -p | --protocol)
      mapfile -t COMPREPLY < <(compgen -W 'wireGuard amneziawg openVpn singBox vless vmess trojan
        shadowsocks hysteria2 tuic dravo xray-reality xray' -- "$current")
      return
      ;;
    --id) return ;;
  esac

  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case $word in
      status | connect | disconnect | watch | keygen | check | doctor)
        command=$word
        break
        ;;
    esac
  done

  local options='--json --help --version'
  case $command in
    '') options+=' --protocol --kill-switch --id --connected' ;;
    status) options+=' --connected' ;;
    connect) options+=' --protocol --kill-switch --id' ;;
    check) options+=' --protocol --id' ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    return
  fi
  case $command in
    '') mapfile -t COMPREPLY < <(compgen -W 'status connect disconnect watch keygen check doctor' -- "$current") ;;
    doctor) mapfile -t COMPREPLY < <(compgen -W 'wireguard openvpn sing-box xray' -- "$current") ;;
    connect | check)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      ;;
  esac
}

complete -F _quorvexvpnctl quorvexvpnctl
