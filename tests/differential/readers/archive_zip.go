// Reads zip files with archive/zip.
package main

import (
	"archive/zip"
	"bufio"
	"encoding/hex"
	"fmt"
	"hash/crc32"
	"io"
	"os"
	"strings"
)

func contentOf(item *zip.File) string {
	stream, err := item.Open()
	if err != nil {
		return "!"
	}
	defer stream.Close()
	checksum := crc32.NewIEEE()
	size, err := io.Copy(checksum, stream)
	if err != nil {
		return "!"
	}
	return fmt.Sprintf("%d:%08x", size, checksum.Sum32())
}

func read(name string) string {
	archive, err := zip.OpenReader(name)
	if err != nil {
		return "- " + strings.ReplaceAll(err.Error(), "\n", " ")
	}
	defer archive.Close()
	found := "+"
	for _, item := range archive.File {
		found += " " + hex.EncodeToString([]byte(item.Name)) + ":" + contentOf(item)
	}
	return found
}

func main() {
	input := bufio.NewScanner(os.Stdin)
	for input.Scan() {
		fmt.Println(read(input.Text()))
	}
}
