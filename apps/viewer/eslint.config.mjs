import js from "@eslint/js";
import tseslint from "typescript-eslint";

// What a file says is data, never markup: these would make elements or code of text.
const textAsMarkup = [
  "AssignmentExpression[left.property.name=/^(innerHTML|outerHTML|srcdoc)$/]",
  "CallExpression[callee.property.name=/^(insertAdjacentHTML|setHTMLUnsafe|createContextualFragment|parseFromString)$/]",
  "CallExpression[callee.object.name='document'][callee.property.name=/^write(ln)?$/]",
  "CallExpression[callee.property.name=/^setAttribute(NS)?$/] > Literal[value=/^(on.*|style)$/i]",
].map((selector) => ({ selector, message: "Make elements and set textContent, classes and CSSOM properties." }));

export default tseslint.config(
  { ignores: ["dist/", "node_modules/"] },
  js.configs.recommended,
  {
    files: ["src/**/*.ts", "browser/**/*.ts"],
    extends: [tseslint.configs.strictTypeChecked, tseslint.configs.stylisticTypeChecked],
    languageOptions: { parserOptions: { projectService: true, tsconfigRootDir: import.meta.dirname } },
    rules: {
      eqeqeq: "error",
      "no-eval": "error",
      "no-implied-eval": "off",
      "@typescript-eslint/no-implied-eval": "error",
      "no-new-func": "error",
      "no-restricted-syntax": ["error", ...textAsMarkup],
      // It asks for what `no-non-null-assertion` forbids.
      "@typescript-eslint/non-nullable-type-assertion-style": "off",
      "@typescript-eslint/restrict-template-expressions": ["error", { allowNumber: true }],
      "@typescript-eslint/switch-exhaustiveness-check": "error",
      // Of an index that is known to be inside its array.
      "@typescript-eslint/no-non-null-assertion": "off",
    },
  },
  {
    // The runner of the tests awaits them itself.
    files: ["**/*.test.ts"],
    rules: { "@typescript-eslint/no-floating-promises": "off" },
  },
  {
    files: ["*.mjs"],
    languageOptions: { globals: { Buffer: "readonly", console: "readonly", process: "readonly" } },
  },
);
